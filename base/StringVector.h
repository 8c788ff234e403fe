#pragma once

#include "base/Export.h"

#include <cstddef>
#include <string>
#include <vector>

/// A list of texts: lines or tokens, without line ends. A standard vector with more members and no data of
/// its own: used, copied and destroyed as the vector is, by one thread at a time. Elements are bytes in no
/// particular encoding. Null or empty arguments are never errors; if memory runs out, the standard exception
/// passes.
class VRX_EXPORT string_vector : public std::vector<std::string> {
public:
    // Tokens and lookup (StringVector.cpp)

    /// Replaces the content with the tokens of `text`.
    ///
    /// text         null or "": the list becomes empty. It may lie in one of the list's own elements
    /// delimiters   the bytes that separate tokens; null or "": the list becomes empty. Runs of delimiters
    ///              separate once, and none at either end makes an empty token; nothing else is trimmed
    /// quote        0: nothing quotes. Otherwise a stretch between two quote characters, anywhere in a token,
    ///              is taken without them, delimiters included; two in a row inside it are one literal quote
    ///              character; a stretch never closed runs to the end of the text
    ///
    /// With delimiter " " and quote "'", "ab'c d'e" is the one token "abc de". Only a token of nothing but
    /// empty quotes ("''", or a lone "'" at the end) becomes an empty element. A quote character that is
    /// among the delimiters only delimits.
    void Split(const char* text, const char* delimiters, char quote);

    /// The index of the first element from index `start` on that equals `text` byte for byte, -1 if there is
    /// none. An element with a NUL equals no text; null is never found.
    int find(const char* text, size_t start) const;

    /// As find, but without regard to case: elements are compared by strcasecmp(3) in the current C locale,
    /// up to their first NUL.
    int findi(const char* text, size_t start) const;

    /// The index of the first element from index `start` on that String::CompareWild matches with `pattern`,
    /// -1 if there is none. "" matches nothing, and nothing matches an empty element.
    ///
    /// A null pattern throws std::logic_error if there is an element to compare, as the standard string does.
    int findwild(const char* pattern, size_t start) const;

    // Text files and texts (StringVectorLines.cpp)

    /// Replaces the list by a file's lines; pipes and the like are read to their end.
    ///
    /// Every LF ends a line. One CR before it goes with it, as does one CR that ends the file; any other CR
    /// is text. Each line is then cut at its first NUL. A terminator at the end of the file adds no empty
    /// line.
    ///
    /// Returns the number of lines; a folder has none. -1 when the file cannot be opened, the list is empty
    /// then; -1 for a null or empty `name`, the list stays as it was then.
    int LoadFromFile(const char* name);

    /// Replaces the list by the lines of a text, which may stand in this list.
    ///
    /// LF and CR LF end a line; any other CR is text, also at the very end of `text` (unlike in a file).
    /// A terminator at the end adds no empty line.
    ///
    /// Returns the number of lines; -1 for a null or empty `text`, the list stays as it was then.
    int LoadFromString(const char* text);

    /// Writes each element up to its first NUL, and CR LF behind each, to a new or emptied file.
    ///
    /// Returns false when the file cannot be created, or for a null or empty `name`; true in all other cases:
    /// a disk that fills up while writing is not reported.
    bool SaveToFile(const char* name);

    /// Replaces `out` by all elements in full, NULs included, with CR LF behind each, or with nothing between
    /// them if `crlf` is false. Returns true. An element of this list given as `out` counts as empty.
    bool SaveToString(std::string& out, bool crlf) const;

    // Profiles (StringVectorProfile.cpp)
    //
    // A profile is a list of lines in the manner of an INI file: "[section]" headers, each with "key=value"
    // entries below it up to the next line that begins with "[". Lines that begin with ";" and empty lines
    // are passed over. Nothing is trimmed: a header is the whole line, and "key = value" has the key "key "
    // and the value " value". Names are compared without regard to case (strcasecmp(3), current C locale).
    //
    // Only the first header of a name counts, and the first entry of a key below it. Entry lines, which end
    // at their first NUL, are cut at runs of "=": the first part is the key, and there is a value only if
    // there are exactly two parts. An entry line of nothing but "=" signs ends every search in its section.

    /// The value of an entry, without a comment: cut at its first ";" and the blanks in front of it. "" if
    /// `section` or `key` is null or empty; `defaultValue` (null: "") if there is no such entry or it has no
    /// value ("key", "key=", "key=a=b").
    std::string GetProfileStr(const char* section, const char* key, const char* defaultValue) const;

    /// The value of an entry as a decimal number, read by strtol(3) and cut to 32 bits: "12abc" is 12, "abc"
    /// is 0. `defaultValue` if GetProfileStr gives an empty value.
    int GetProfileIntg(const char* section, const char* key, int defaultValue) const;

    /// Sets an entry to "key=value": replaces the line of the key, or the line of nothing but "=" signs that
    /// hides it, or else adds a line to the section. It goes in front of the section's last line, which
    /// usually is an empty one, and so in front of the header if the section has no other line; the last
    /// section of the list gets it at its end. A section that does not exist is added at the end of the list.
    ///
    /// section   null or "": nothing happens
    /// key       null, with a null value: removes the section with its header and all its lines.
    ///           Null with a value breaks the contract and changes nothing
    /// value     null: an existing section gets the line "key=(null)"; without it nothing happens
    ///
    /// The arguments may lie in the list's own elements. If memory runs out, a new header may stand without
    /// its entry.
    void WriteProfileStr(const char* section, const char* key, const char* value);

    /// WriteProfileStr with `value` in decimal.
    void WriteProfileIntg(const char* section, const char* key, int value);

    // CSV rows (StringVectorCsv.cpp)

    /// Replaces the content with the fields of a CSV row, read by String::ReadCSVField with the same three
    /// last arguments. True when the whole row was read; false if a field was malformed, after the fields in
    /// front of it. A null or empty text gives false and leaves the list as it is. `text` may lie in one of
    /// the list's own elements.
    bool loadFromCSVString(const char* text, bool trim, char separator, char quote);

    /// The elements from index `first` on as a CSV row without a line end, written by String::AddCSVField
    /// with the same three last arguments. "" if there are none.
    std::string saveToCSVString(size_t first, bool forceQuote, char separator, char quote);

    // Stable sorts (StringVectorSort.cpp)

    /// Sorts the elements from index `keep` on; the first `keep` ones stay where they are. Ascending byte
    /// order, bytes unsigned, a shorter text before a longer one that begins with it.
    ///
    /// Like the three others, it is stable: elements that compare equal keep their order. It takes extra
    /// memory as long as there is some and sorts without when there is none.
    void sort(size_t keep);

    /// As sort, in descending order. Equal elements keep their order here as well.
    void sortrev(size_t keep);

    /// As sort, in the ascending order of strcasecmp(3) in the current C locale: without regard to case, up
    /// to the first NUL.
    void sorti(size_t keep);

    /// As sorti, in descending order.
    void sortirev(size_t keep);
};

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
    /// is
    ///              taken without them, delimiters included; two in a row inside it are one literal quote
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
    int LoadFromFile(const char* name);
    int LoadFromString(const char* text);
    bool SaveToFile(const char* name);
    bool SaveToString(std::string& out, bool crlf) const;

    // Profiles (StringVectorProfile.cpp)
    std::string GetProfileStr(const char* section, const char* key, const char* defaultValue) const;
    int GetProfileIntg(const char* section, const char* key, int defaultValue) const;
    void WriteProfileStr(const char* section, const char* key, const char* value);
    void WriteProfileIntg(const char* section, const char* key, int value);

    // CSV rows (StringVectorCsv.cpp)
    bool loadFromCSVString(const char* text, bool trim, char separator, char quote);
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

#pragma once

#include "base/Export.h"

#include <string>
#include <vector>

// All of these may be called from any thread, on texts that no other thread changes meanwhile. "Blank" means
// space or TAB.
namespace String {

/// Turns each character into its capital by toupper(3), byte by byte in the current C locale: in the default
/// one only ASCII letters change. A NUL ends the text: it and everything behind it drop.
VRX_EXPORT void ToUpper(std::string& text);

/// As ToUpper, by tolower(3).
VRX_EXPORT void ToLower(std::string& text);

/// Removes leading blanks. A NUL ends the text: it and everything behind it drop.
VRX_EXPORT void TrimLeft(std::string& text);

/// Removes trailing blanks, with `lineEnds` also CR and LF ("x \t\r\n" becomes "x"). NULs are ordinary
/// characters.
VRX_EXPORT void TrimRight(std::string& text, bool lineEnds);

/// Removes leading and trailing blanks, the latter only in part: for each leading blank removed one trailing
/// blank stays, as far as there are any. "ab  " becomes "ab", but " ab " becomes "ab " and "  ab  " becomes
/// "ab  ". A text of blanks becomes "". NULs are ordinary characters.
VRX_EXPORT void Trim(std::string& text);

/// Replaces every occurrence of `find` from left to right; replaced text is not searched again ("aaa" with
/// "aa" by "b" gives "ba"). An empty `find` gives the text as it is. NULs are ordinary characters.
VRX_EXPORT std::string Replace(const std::string& text, const std::string& find,
                               const std::string& replacement);

/// The items one behind the other with `separator` between them; no items give "".
VRX_EXPORT std::string Merge(const std::vector<std::string>& items, const std::string& separator);

/// Whether `pattern` matches the whole of `text`, byte by byte, each up to its first NUL. "*" stands for any
/// run of characters, "?" for exactly one; nothing escapes them.
///
/// An empty text or pattern matches nothing, not even "" and "*". Only a star at the very end of the pattern
/// takes an empty rest: "a*" matches "a", but "a**" and "a*?*" do not.
///
/// capture   null, or a text to which a record of the search is appended: "*" for each star reached that is
///           not the pattern's last character, then each character that this star takes after a failed try.
///           Failed tries stay in the record. "*.*" on "a.b" appends "*a". It may be the text or the pattern
///           itself
///
/// Without a capture the time is proportional to text times pattern at worst. With one, each star multiplies
/// it by the length of the text, and the record grows likewise: take no patterns from strangers there.
VRX_EXPORT bool CompareWild(const std::string& text, const std::string& pattern, std::string* capture);

} // namespace String

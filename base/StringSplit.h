#pragma once

#include "base/Export.h"

#include <string>
#include <vector>

namespace String {

/// Replaces `result` with the pieces of `text` between the bytes of `delimiters`.
///
/// Any of those bytes separates, runs of them count as one, and none at either end makes an empty piece. No
/// delimiters: one piece, the whole text. A text of delimiters alone, or an empty one: one empty piece. NULs
/// are ordinary bytes. `text` and `delimiters` may be elements of `result`. May be called from any thread.
VRX_EXPORT void Split(std::vector<std::string>& result, const std::string& text,
                      const std::string& delimiters);

/// Replaces `result` with the words of `text`, which white space (isspace in the current C locale) separates.
///
/// A double quote, anywhere in a word, makes white space ordinary up to the next one and is not kept; one
/// never closed reaches to the end. A backslash and what follows are one character:
///
/// abfnrtv        the control byte, as in C
/// a digit        up to three decimal digits, read as octal up to an 8 or 9: the number's low byte
/// x or X         takes up to two hexadecimal digits and always gives 0
/// another byte   itself: a backslash, a quote that quotes nothing, a blank inside the word
/// the end        the backslash itself
///
/// An empty or blank text gives one empty word, and so does "\"\""; two or more blanks at the end give an
/// empty word, one gives none. NULs are ordinary bytes. `text` may be an element of `result`. May be called
/// from any thread.
VRX_EXPORT void SplitQuoted(std::vector<std::string>& result, const std::string& text);

} // namespace String

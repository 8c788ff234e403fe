#pragma once

#include "base/Export.h"

#include <map>
#include <string>

namespace String {

/// True if `name` begins with a letter or "_" and goes on with letters, digits and "_" (isalpha and isalnum
/// in the current C locale).
///
/// name              null and "" are no identifiers
/// extraChars        further characters allowed behind the first one; may be null
/// extraFirstChars   further characters allowed as the first one, digits for example; may be null. Mind the
///                   order: the set for the first character comes last
///
/// May be called from any thread.
VRX_EXPORT bool IsIdentifier(const char* name, const char* extraChars, const char* extraFirstChars);

/// `text` up to its first NUL, with every word that is a key of `macros` replaced by its value.
///
/// A word begins with a letter, "_", "$" or "@" and goes on as long as there are letters, digits, "_" and
/// characters of `extraChars` (may be null); letters are those of the current C locale. The key is the whole
/// word with its first character: "$HOME" is looked up as "$HOME", and "$a$b" is two words. Values are not
/// expanded again. May be called from any thread.
VRX_EXPORT std::string ExpandIdentifier(const std::string& text,
                                        const std::map<std::string, std::string>& macros,
                                        const char* extraChars);

/// Replaces the macros in `text`, written between two delimiters ("$name$"), and returns a log of the
/// problems, "" if there were none. Values are expanded in the same way.
///
/// output             replaced with the expanded text; may be `text` or a macro's value
/// macros             must not be cyclic: a value that leads back to its own macro is expanded until memory
///                    runs out
/// checkIdentifiers   names must be identifiers by IsIdentifier(name, null, null)
/// delimiter          any byte, 0 included
///
/// Two delimiters in a row give one "$", whatever the delimiter is. A problem ends nothing:
///
/// "Unterminated macro at index %d\n"                  the rest, delimiter included, is copied
/// "Macro '%s' is not an identifier at index %d\n"     "$", the name and "$" are written
/// "Undefined macro '%s' at index %d\n"                the same
///
/// The index is that of the opening delimiter in the text or, inside a value, in that value. Text and names
/// may hold NULs and be of any length; in the log and for the identifier test a name ends at its first NUL.
/// May be called from any thread.
VRX_EXPORT std::string ExpandDelimited(std::string& output, const std::string& text,
                                       const std::map<std::string, std::string>& macros,
                                       bool checkIdentifiers, char delimiter);

} // namespace String

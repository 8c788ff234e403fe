#pragma once

#include "base/Export.h"

#include <string>

namespace String {

/// Reads the next field of a CSV row (in the manner of RFC 4180, but with the rules below).
///
/// field       the field is appended; pass an empty string for each field
/// cursor      where to read; moved behind the separator when there is one. Null reads as the end of the text
/// trim        skip blanks (space, TAB) in front of the field and remove those at its end, even inside quotes
/// separator   ends a field; one that is a blank is skipped like a blank in front of a trimmed field
/// quote       a field that begins with it ends at the next single one; two in a row inside stand for one.
///             Anywhere else it is an ordinary character. 0: nothing quotes
///
/// Every line feed is stored as CR LF, whatever stands in front of it: AddCSVField drops the CRs again.
///
/// Returns 0 after a field with a separator behind it.
/// Returns 1 after the last field; the cursor keeps its value.
/// Returns -17 for a malformed field, of which `field` holds what was read: either the closing quote is
/// missing (the cursor keeps its value), or it has neither the separator nor the end behind it, blanks
/// included (the cursor is at that character). Give the row up then.
///
/// `field` must not be the string the cursor points into. May be called from any thread.
VRX_EXPORT int ReadCSVField(std::string& field, const char*& cursor, bool trim, char separator, char quote);

/// Appends a field to a CSV row, with the separator in front of it unless the row is empty. Returns 1.
///
/// row          "" to begin with; must not be the string that holds `field`
/// field        null is an empty field
/// forceQuote   quotes the field even if it holds neither the separator nor the quote nor a CR
///
/// In a quoted field CRs are dropped (ReadCSVField restores them in front of LFs), even where a CR is the
/// quote, and quotes are doubled. A row of one empty field is two quotes, so that it is no empty line; a
/// second field clears that mark, so that the row then begins with the separator. It also clears two quotes
/// that a first field of forced quotes left. May be called from any thread.
VRX_EXPORT int AddCSVField(std::string& row, const char* field, bool forceQuote, char separator, char quote);

/// The same for a field in a string, which ends at its first NUL.
VRX_EXPORT int AddCSVField(std::string& row, const std::string& field, bool forceQuote, char separator,
                           char quote);

} // namespace String

#pragma once

#include "base/Export.h"

#include <string>

namespace String {

/// How a text is written with escapes. Values outside the enumeration copy in both directions, as encNone
/// does.
enum Encoding : int {
    encNone,     ///< copies
    encURL,      ///< percent-encoding (RFC 3986): "a b" is "a%20b"
    encXML,      ///< XML 1.0 entities and character references: "<" is "&lt;"
    encCQuoted,  ///< C escapes between double quotes: a line feed is "\n"
    encCEscaped, ///< C escapes without the quotes, "{" escaped too
    encVisible   ///< visible control characters, for logs: "<CR>", "<09>"
};

/// Writes `input` in an encoding and replaces `output` with it; both may be the same string.
///
/// Every byte is encoded, NULs included. A byte is printable if isprint says so in the current C locale (in
/// the default one 0x20 to 0x7E). Hexadecimal digits are upper-case.
///
/// encURL        printable bytes are copied but for the blank and  <>#%{}|\^~[]';/?:@=&$  ; all others become
///               "%XX". A blank is "%20", a "+" stays
/// encXML        printable bytes are copied; " & ' < > become &quot; &amp; &apos; &lt; &gt;. TAB, LF, CR and
///               0x7F to 0xFF become "&#xXX;". The other control bytes all become "&#8364;", the euro sign
/// encCQuoted    printable bytes are copied; \ " ' get a backslash; 8, 9, 10, 12, 13 become \b \t \n \f \r;
///               all others become a backslash and three octal digits. A double quote is added at both ends,
///               so that "" gives two
/// encCEscaped   as encCQuoted, but without the quotes at the ends and with "\{" for "{"
/// encVisible    printable bytes are copied; CR and LF become "<CR>" and "<LF>", all others "<XX>"
///
/// Decode restores what encURL and encCQuoted write, byte for byte, and with encCQuoted also what
/// encCEscaped writes. What encXML writes comes back but for the control bytes that became euro signs.
/// encVisible is not meant to be read back. May be called from any thread.
VRX_EXPORT void Encode(std::string& output, const std::string& input, Encoding encoding);

/// Reads a text in an encoding and replaces `output` with the result; both may be the same string. There are
/// no errors: broken escapes are read as said below. encNone, encCEscaped, encVisible and unknown values
/// copy.
///
/// encURL        "%" and the two bytes behind it give one byte: the low byte of what strtoul(3) reads there
///               in base 16, so that "%1G" gives 1, "%G1" gives 0, and a blank or sign before a digit counts.
///               A "%" with fewer than two bytes behind it and all else, "+" included, is copied
/// encXML        "&quot;" "&amp;" "&apos;" "&lt;" "&gt;" give their characters. "&#x...;" gives the low byte
///               of the hexadecimal number, "&#...;" that of the number in strtoul's automatic base (0x...,
///               0... or decimal), each up to the first character that is no digit: "&#65;" is "A", "&#8364;"
///               the byte 0xAC, "&#;" and "&#X41;" 0. Any other text from "&" to the next ";" is copied. An
///               "&" with no ";" behind it is dropped with the rest of the text
/// encCQuoted    double quotes are dropped wherever they stand. A backslash and a letter of abfnrtv give a
///               control byte; up to three decimal digits an octal number's low byte (an 8 or 9 ends the
///               number, but is taken); "x" or "X" takes one hexadecimal digit and always gives 0; before any
///               other byte the backslash goes. A backslash at the end is copied
///
/// May be called from any thread.
VRX_EXPORT void Decode(std::string& output, const std::string& input, Encoding encoding);

} // namespace String

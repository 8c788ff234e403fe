#pragma once

#include "base/Export.h"

#include <map>
#include <string>

/// Settings by key, in the byte order of the keys; keys are case-sensitive. A standard map with one more
/// member and no data of its own: used, copied and destroyed as the map is, by one thread at a time.
class VRX_EXPORT string_map : public std::map<std::string, std::string> {
public:
    /// Replaces the content with the settings in `text` and returns the number of entries.
    ///
    /// text     settings separated by commas, "server=10.0.0.5, servport=7000"; null or "" give none. It
    ///          may lie in this map's own strings
    /// quote    the quote character of string_vector::Split, which cuts the text at "," and then each item at
    ///          blanks, TABs and "="; it quotes in both steps. 0: nothing is quoted
    ///
    /// An item of two tokens is a key and a value, even without "=" ("a b" is "a=b"); blanks around them
    /// drop. An item of fewer tokens is skipped: "key=" stores nothing. With more tokens the key is the first
    /// one and the value everything after the first "=", blanks included ("a = x y" gives " x y", "a=b=c"
    /// gives "b=c", "a b c=" gives ""); without a "=" the item is skipped. The first setting of a key wins.
    ///
    /// Nothing is an error. If memory runs out, the standard exception passes and the map holds what was
    /// read.
    unsigned Split(const char* text, char quote);
};

#pragma once

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace vrx::fuzz {

inline std::string Shown(std::string_view text) {
    std::string shown = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02x", byte);
        shown += byte < 0x7F && std::isprint(byte) && c != '"' && c != '\\' ? std::string(1, c) : escape;
    }
    return shown + '"';
}

template <class Number, class = std::enable_if_t<std::is_arithmetic_v<Number>>>
std::string Shown(Number number) {
    return std::to_string(number);
}

template <class A, class B>
std::string Shown(const std::pair<A, B>& pair) {
    return Shown(pair.first) + ": " + Shown(pair.second);
}

template <class List>
std::string ShownList(const List& list) {
    std::string shown = "{";
    for (const auto& element : list) shown += ' ' + Shown(element);
    return shown + " }";
}

inline std::string Shown(const std::vector<std::string>& list) {
    return ShownList(list);
}

inline std::string Shown(const std::map<std::string, std::string>& map) {
    return ShownList(map);
}

[[noreturn]] inline void Fail(const std::string& what) {
    std::fprintf(stderr, "property broken: %s\n", what.c_str());
    std::abort();
}

/// Ends the process, which is a finding, unless the property `what` holds.
inline void Require(bool holds, const char* what) {
    if (!holds) Fail(what);
}

template <class T, class U>
void RequireSame(const T& got, const U& want, const char* what) {
    if (!(got == want)) Fail(std::string(what) + "\n  got  " + Shown(got) + "\n  want " + Shown(want));
}

} // namespace vrx::fuzz

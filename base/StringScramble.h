#pragma once

#include "base/Export.h"

#include <cstdint>
#include <string>

namespace String {

/// Scrambles `text`, or unscrambles it: the same call on the result gives the text back. Obfuscation for
/// settings and similar short texts, not cryptography.
///
/// seed   any number; the key is used from position seed % (length - 1) on, so never from its last byte
/// key    at least two bytes, never null; only the low six bits of each byte count. A shorter key ends the
///        process (abort)
/// text   never null; "" gives ""
///
/// Each byte is XORed with (key byte & 0x3F) | 0x80, the key repeating. The result is as long as the text.
/// Bytes 1 to 127 become 128 to 255, so the result of such a text can be handed on as a C string. A byte
/// above 127 can become a NUL, at which a later unscrambling stops. May be called from any thread.
VRX_EXPORT std::string SymmetricEncrypt(uint64_t seed, const char* key, const char* text);

} // namespace String

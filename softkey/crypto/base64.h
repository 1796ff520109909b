// Base64, the text form of everything binary that crosses the key's interface.
#ifndef SOFTKEY_CRYPTO_BASE64_H
#define SOFTKEY_CRYPTO_BASE64_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "softkey/store/records.h"

namespace softkey {

// One line, padded.
std::string ToBase64(const std::uint8_t* bytes, std::size_t size);
inline std::string ToBase64(const Bytes& bytes) {
    return ToBase64(bytes.data(), bytes.size());
}

// Blanks and line ends may stand anywhere; anything else that is not Base64 makes it nothing.
std::optional<Bytes> FromBase64(std::string_view text);

// What stands inside each PEM armour in the text, still Base64, also when the line ends around it
// were removed. A text without armour is returned whole.
std::vector<std::string_view> WithoutArmour(std::string_view text);

}  // namespace softkey

#endif

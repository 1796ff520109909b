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

// Blanks and line ends may stand anywhere; anything else that is not Base64 as ToBase64 writes it
// makes it nothing.
std::optional<Bytes> FromBase64(std::string_view text);

// The content of each block of a PEM text, also when the line ends around its armour were removed,
// or of a text without armour, which is Base64. Nothing when any of it cannot be read.
std::optional<std::vector<Bytes>> FromText(std::string_view text);

}  // namespace softkey

#endif

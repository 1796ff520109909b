// How private keys rest: each is sealed under the master key of its key, and the master key is
// sealed under a key derived from the PIN. A wrong PIN opens nothing, and a change of PIN seals
// one small thing anew.
#ifndef SOFTKEY_CRYPTO_VAULT_H
#define SOFTKEY_CRYPTO_VAULT_H

#include <openssl/crypto.h>

#include <array>
#include <optional>
#include <string_view>

#include "softkey/result.h"
#include "softkey/store/records.h"

namespace softkey {

// 32 secret bytes that are wiped where they lay.
class MasterKey {
public:
    static constexpr std::size_t kSize = 32;

    MasterKey() = default;
    MasterKey(const MasterKey& other) = default;
    MasterKey& operator=(const MasterKey& other) = default;
    ~MasterKey() { OPENSSL_cleanse(bytes_.data(), bytes_.size()); }

    static MasterKey Random();

    std::uint8_t* data() { return bytes_.data(); }
    const std::uint8_t* data() const { return bytes_.data(); }

private:
    std::array<std::uint8_t, kSize> bytes_{};
};

// Bytes that are wiped when they go.
class SecretBytes {
public:
    explicit SecretBytes(std::size_t size) : bytes_(size) {}
    ~SecretBytes() { OPENSSL_cleanse(bytes_.data(), bytes_.size()); }
    SecretBytes(SecretBytes&&) = default;
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;

    std::uint8_t* data() { return bytes_.data(); }
    const std::uint8_t* data() const { return bytes_.data(); }
    std::size_t size() const { return bytes_.size(); }
    void Shrink(std::size_t size) {
        OPENSSL_cleanse(bytes_.data() + size, bytes_.size() - size);
        bytes_.resize(size);
    }

private:
    Bytes bytes_;
};

// kPinLength unless the PIN has 6 to 16 bytes.
void CheckPinLength(std::string_view pin);

// context binds a seal to its place: what was sealed for another serial number does not open.
PinSeal SealMaster(const MasterKey& master, std::string_view pin, std::string_view context);
// Nothing when the PIN is wrong.
std::optional<MasterKey> OpenMaster(const PinSeal& seal, std::string_view pin,
                                    std::string_view context);

Bytes Wrap(const MasterKey& master, const std::uint8_t* secret, std::size_t size,
           std::string_view context);
// kStateDamaged when the bytes are not those that were wrapped under this key for this place.
SecretBytes Unwrap(const MasterKey& master, const Bytes& wrapped, std::string_view context);

}  // namespace softkey

#endif

// How private keys rest: each is sealed under the master key of its key, and the master key is
// sealed under a key derived from the PIN. A wrong PIN opens nothing.
#ifndef SOFTKEY_CRYPTO_VAULT_H
#define SOFTKEY_CRYPTO_VAULT_H

#include <optional>
#include <string_view>

#include "softkey/crypto/secret_bytes.h"
#include "softkey/result.h"
#include "softkey/store/records.h"

namespace softkey {

class MasterKey {
public:
    static constexpr std::size_t kSize = 32;

    static MasterKey Random();

    MasterKey() : bytes_(kSize) {}
    MasterKey(const MasterKey& other) : bytes_(other.data(), kSize) {}
    MasterKey(MasterKey&&) = default;
    MasterKey& operator=(MasterKey&&) = default;

    std::uint8_t* data() { return bytes_.data(); }
    const std::uint8_t* data() const { return bytes_.data(); }

private:
    SecretBytes bytes_;
};

// scrypt's parameters, which each seal keeps.
struct PinCost {
    std::int64_t n = 32768;
    std::int64_t block = 8;
    std::int64_t parallel = 2;
};

// What $KESTA_SOFTKEY_PIN_COST says in place of n, or the usual cost. For keys that are thrown
// away: a test that makes many keys need not wait for each. kBadArgument.
PinCost CostOfNewKeys();

// kPinLength unless the PIN has 6 to 16 characters of UTF-8; a byte that is none counts as one.
void CheckPinLength(std::string_view pin);

// context binds a seal to its place: what was sealed for another serial number does not open.
PinSeal SealMaster(const MasterKey& master, std::string_view pin, std::string_view context,
                   const PinCost& cost = {});
// Nothing when the PIN is wrong. kStateDamaged.
std::optional<MasterKey> OpenMaster(const PinSeal& seal, std::string_view pin,
                                    std::string_view context);
bool IsSound(const PinSeal& seal);
// The cost of a seal, for the next one; that of new seals when this one is of an earlier version.
PinCost CostOf(const PinSeal& seal);

void FillRandom(std::uint8_t* bytes, std::size_t size);

Bytes Wrap(const MasterKey& master, const std::uint8_t* secret, std::size_t size,
           std::string_view context);
// kStateDamaged when the bytes are not those that were wrapped under this key for this place.
SecretBytes Unwrap(const MasterKey& master, const Bytes& wrapped, std::string_view context);
bool IsWrapped(const Bytes& bytes);

}  // namespace softkey

#endif

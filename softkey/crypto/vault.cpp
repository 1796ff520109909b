#include "softkey/crypto/vault.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cstdlib>

#include "softkey/crypto/openssl_types.h"

namespace softkey {
namespace {

constexpr std::size_t kSaltSize = 16;
constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kTagSize = 16;
constexpr std::size_t kWrapping = kNonceSize + kTagSize;
// Beyond these a stored number is damage: nobody ever asked for so much.
constexpr std::int64_t kMostIterations = 10000000;
constexpr std::int64_t kMostScrypt = 1048576;
constexpr std::int64_t kMostBlocks = 64;
constexpr std::uint64_t kMostMemory = 1073741824;

bool Within(std::int64_t value, std::int64_t least, std::int64_t most) {
    return value >= least && value <= most;
}

bool IsPowerOfTwo(std::int64_t value) {
    return (value & (value - 1)) == 0;
}

MasterKey Derive(const PinSeal& seal, std::string_view pin) {
    MasterKey derived;
    const bool done =
        seal.kdf == Kdf::kPbkdf2
            ? PKCS5_PBKDF2_HMAC(pin.data(), static_cast<int>(pin.size()), seal.salt.data(),
                                static_cast<int>(seal.salt.size()), static_cast<int>(seal.cost),
                                EVP_sha256(), static_cast<int>(MasterKey::kSize),
                                derived.data()) == 1
            : EVP_PBE_scrypt(pin.data(), pin.size(), seal.salt.data(), seal.salt.size(),
                             static_cast<std::uint64_t>(seal.cost),
                             static_cast<std::uint64_t>(seal.block),
                             static_cast<std::uint64_t>(seal.parallel), kMostMemory, derived.data(),
                             MasterKey::kSize) == 1;
    Require(done, "deriving from the PIN");
    return derived;
}

const std::uint8_t* AsBytes(std::string_view text) {
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

// The length of the UTF-8 character at the beginning of a text; 1 for a byte that begins none.
std::size_t CharacterLength(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    const std::size_t length = first < 0xC2 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (first > 0xF4 || length > text.size()) return 1;
    const bool whole = std::all_of(text.begin() + 1, text.begin() + static_cast<long>(length),
                                   [](char c) { return (c & 0xC0) == 0x80; });
    return whole ? length : 1;
}

std::size_t CharactersOf(std::string_view text) {
    std::size_t count = 0;
    for (; !text.empty(); text.remove_prefix(CharacterLength(text))) ++count;
    return count;
}

// Nothing when the tag does not fit.
std::optional<SecretBytes> TryUnwrap(const MasterKey& master, const Bytes& wrapped,
                                     std::string_view context) {
    if (!IsWrapped(wrapped)) return std::nullopt;
    const std::size_t size = wrapped.size() - kWrapping;
    const std::uint8_t* const cipher = wrapped.data() + kNonceSize;
    Bytes tag(wrapped.end() - static_cast<std::ptrdiff_t>(kTagSize), wrapped.end());
    SecretBytes plain(size);
    const CipherCtxPtr ctx(EVP_CIPHER_CTX_new());
    int length{};
    Require(ctx &&
                EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, master.data(),
                                   wrapped.data()) == 1 &&
                EVP_DecryptUpdate(ctx.get(), nullptr, &length, AsBytes(context),
                                  static_cast<int>(context.size())) == 1 &&
                EVP_DecryptUpdate(ctx.get(), plain.data(), &length, cipher,
                                  static_cast<int>(size)) == 1 &&
                EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(kTagSize),
                                    tag.data()) == 1,
            "unwrapping");
    // Writes nothing: this mode pads nothing.
    if (EVP_DecryptFinal_ex(ctx.get(), plain.data(), &length) != 1) return std::nullopt;
    return plain;
}

}  // namespace

void FillRandom(std::uint8_t* bytes, std::size_t size) {
    Require(RAND_priv_bytes(bytes, static_cast<int>(size)) == 1, "random numbers");
}

MasterKey MasterKey::Random() {
    MasterKey key;
    FillRandom(key.data(), kSize);
    return key;
}

void CheckPinLength(std::string_view pin) {
    const std::size_t characters = CharactersOf(pin);
    if (characters < kMinPinLength || characters > kMaxPinLength) throw Failure(kPinLength);
}

PinCost CostOfNewKeys() {
    constexpr std::int64_t kLeast = 1024, kMost = 524288;  // half of kMostMemory
    PinCost cost;
    const char* const text = std::getenv("KESTA_SOFTKEY_PIN_COST");
    if (text == nullptr || *text == '\0') return cost;
    char* end = nullptr;
    cost.n = std::strtol(text, &end, 10);
    if (*end != '\0' || !Within(cost.n, kLeast, kMost) || !IsPowerOfTwo(cost.n)) {
        throw Failure(kBadArgument, std::string("KESTA_SOFTKEY_PIN_COST=") + text);
    }
    return cost;
}

PinSeal SealMaster(const MasterKey& master, std::string_view pin, std::string_view context,
                   const PinCost& cost) {
    CheckPinLength(pin);
    PinSeal seal;
    seal.salt.resize(kSaltSize);
    FillRandom(seal.salt.data(), kSaltSize);
    seal.kdf = Kdf::kScrypt;
    seal.cost = cost.n;
    seal.block = cost.block;
    seal.parallel = cost.parallel;
    seal.sealed = Wrap(Derive(seal, pin), master.data(), MasterKey::kSize, context);
    return seal;
}

bool IsSound(const PinSeal& seal) {
    const bool cost = seal.kdf == Kdf::kPbkdf2
                          ? Within(seal.cost, 1, kMostIterations)
                          : seal.kdf == Kdf::kScrypt && Within(seal.cost, 2, kMostScrypt) &&
                                IsPowerOfTwo(seal.cost) && Within(seal.block, 1, kMostBlocks) &&
                                Within(seal.parallel, 1, kMostBlocks);
    return cost && seal.salt.size() == kSaltSize &&
           seal.sealed.size() == kWrapping + MasterKey::kSize;
}

PinCost CostOf(const PinSeal& seal) {
    if (seal.kdf == Kdf::kPbkdf2) return {};
    return {seal.cost, seal.block, seal.parallel};
}

std::optional<MasterKey> OpenMaster(const PinSeal& seal, std::string_view pin,
                                    std::string_view context) {
    if (!IsSound(seal)) throw Failure(kStateDamaged, "the PIN seal");
    const std::optional<SecretBytes> opened = TryUnwrap(Derive(seal, pin), seal.sealed, context);
    if (!opened) return std::nullopt;
    MasterKey master;
    std::copy_n(opened->data(), MasterKey::kSize, master.data());
    return master;
}

bool IsWrapped(const Bytes& bytes) {
    return bytes.size() > kWrapping;
}

Bytes Wrap(const MasterKey& master, const std::uint8_t* secret, std::size_t size,
           std::string_view context) {
    Bytes wrapped(size + kWrapping);
    FillRandom(wrapped.data(), kNonceSize);
    const CipherCtxPtr ctx(EVP_CIPHER_CTX_new());
    int length{};
    Require(ctx &&
                EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, master.data(),
                                   wrapped.data()) == 1 &&
                EVP_EncryptUpdate(ctx.get(), nullptr, &length, AsBytes(context),
                                  static_cast<int>(context.size())) == 1 &&
                EVP_EncryptUpdate(ctx.get(), wrapped.data() + kNonceSize, &length, secret,
                                  static_cast<int>(size)) == 1 &&
                EVP_EncryptFinal_ex(ctx.get(), wrapped.data(), &length) == 1 &&
                EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(kTagSize),
                                    wrapped.data() + kNonceSize + size) == 1,
            "wrapping");
    return wrapped;
}

SecretBytes Unwrap(const MasterKey& master, const Bytes& wrapped, std::string_view context) {
    std::optional<SecretBytes> plain = TryUnwrap(master, wrapped, context);
    if (!plain) throw Failure(kStateDamaged, "a wrapped private key");
    return std::move(*plain);
}

}  // namespace softkey

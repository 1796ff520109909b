#include "softkey/crypto/vault.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>

#include "softkey/crypto/openssl_types.h"

namespace softkey {
namespace {

// A derivation takes some five milliseconds. A PIN of six digits would not stand against someone
// who has the file, however long one derivation took; the tries are what protects it, as on a key.
constexpr int kIterations = 20000;
constexpr std::size_t kSaltSize = 16;
constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kTagSize = 16;

void Require(bool done, const char* what) {
    if (!done) throw Failure(kCryptoFailed, what);
}

void FillRandom(std::uint8_t* bytes, std::size_t size) {
    Require(RAND_bytes(bytes, static_cast<int>(size)) == 1, "random numbers");
}

MasterKey Derive(const PinSeal& seal, std::string_view pin) {
    MasterKey derived;
    Require(PKCS5_PBKDF2_HMAC(pin.data(), static_cast<int>(pin.size()), seal.salt.data(),
                              static_cast<int>(seal.salt.size()), seal.iterations, EVP_sha256(),
                              static_cast<int>(MasterKey::kSize), derived.data()) == 1,
            "deriving from the PIN");
    return derived;
}

const std::uint8_t* AsBytes(std::string_view text) {
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

// Nothing when the tag does not fit.
std::optional<SecretBytes> TryUnwrap(const MasterKey& master, const Bytes& wrapped,
                                     std::string_view context) {
    if (wrapped.size() < kNonceSize + kTagSize) return std::nullopt;
    const std::size_t size = wrapped.size() - kNonceSize - kTagSize;
    const std::uint8_t* const cipher = wrapped.data() + kNonceSize;
    Bytes tag(wrapped.end() - static_cast<std::ptrdiff_t>(kTagSize), wrapped.end());
    SecretBytes plain(size);
    const CipherCtxPtr ctx(EVP_CIPHER_CTX_new());
    int length = 0;
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
    if (EVP_DecryptFinal_ex(ctx.get(), plain.data() + size, &length) != 1) return std::nullopt;
    return plain;
}

}  // namespace

MasterKey MasterKey::Random() {
    MasterKey key;
    FillRandom(key.data(), kSize);
    return key;
}

void CheckPinLength(std::string_view pin) {
    if (pin.size() < kMinPinLength || pin.size() > kMaxPinLength) throw Failure(kPinLength);
}

PinSeal SealMaster(const MasterKey& master, std::string_view pin, std::string_view context) {
    CheckPinLength(pin);
    PinSeal seal;
    seal.salt.resize(kSaltSize);
    FillRandom(seal.salt.data(), kSaltSize);
    seal.iterations = kIterations;
    seal.sealed = Wrap(Derive(seal, pin), master.data(), MasterKey::kSize, context);
    return seal;
}

std::optional<MasterKey> OpenMaster(const PinSeal& seal, std::string_view pin,
                                    std::string_view context) {
    if (seal.sealed.size() != kNonceSize + MasterKey::kSize + kTagSize || seal.iterations < 1 ||
        seal.iterations > 10000000) {
        throw Failure(kStateDamaged, "the PIN seal");
    }
    const std::optional<SecretBytes> opened = TryUnwrap(Derive(seal, pin), seal.sealed, context);
    if (!opened) return std::nullopt;
    MasterKey master;
    std::copy_n(opened->data(), MasterKey::kSize, master.data());
    return master;
}

Bytes Wrap(const MasterKey& master, const std::uint8_t* secret, std::size_t size,
           std::string_view context) {
    Bytes wrapped(kNonceSize + size + kTagSize);
    FillRandom(wrapped.data(), kNonceSize);
    const CipherCtxPtr ctx(EVP_CIPHER_CTX_new());
    int length = 0;
    Require(ctx &&
                EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, master.data(),
                                   wrapped.data()) == 1 &&
                EVP_EncryptUpdate(ctx.get(), nullptr, &length, AsBytes(context),
                                  static_cast<int>(context.size())) == 1 &&
                EVP_EncryptUpdate(ctx.get(), wrapped.data() + kNonceSize, &length, secret,
                                  static_cast<int>(size)) == 1 &&
                EVP_EncryptFinal_ex(ctx.get(), wrapped.data() + kNonceSize + size, &length) == 1 &&
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

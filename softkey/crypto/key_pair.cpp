#include "softkey/crypto/key_pair.h"

#include <openssl/rsa.h>

#include "softkey/result.h"

namespace softkey {
namespace {

std::string WrapContext(const std::string& serial, Role role, const Bytes& publicKey) {
    std::string context = "pair/" + serial + "/" + std::to_string(static_cast<int>(role)) + "/";
    context.append(publicKey.begin(), publicKey.end());
    return context;
}

// DER of a private key: wiped when it goes.
struct Der {
    unsigned char* bytes = nullptr;
    int size = 0;

    Der() = default;
    Der(const Der&) = delete;
    Der& operator=(const Der&) = delete;
    ~Der() { OPENSSL_clear_free(bytes, size > 0 ? static_cast<std::size_t>(size) : 0); }
};

}  // namespace

PKeyPtr GeneratePair(Algorithm algorithm) {
    PKeyPtr pair(algorithm == Algorithm::kRsa
                     ? EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{2048})
                     : EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2"));
    if (!pair) throw Failure(kCryptoFailed, "making a key pair");
    return pair;
}

Algorithm AlgorithmOf(const EVP_PKEY* pair) {
    if (EVP_PKEY_is_a(pair, "RSA")) return Algorithm::kRsa;
    if (EVP_PKEY_is_a(pair, "SM2")) return Algorithm::kSm2;
    throw Failure(kNotSupported, "neither an RSA nor an SM2 key");
}

Bytes PublicKeyOf(const EVP_PKEY* pair) {
    unsigned char* der = nullptr;
    const int size = i2d_PUBKEY(pair, &der);
    if (size <= 0) throw Failure(kCryptoFailed, "writing a public key");
    Bytes bytes(der, der + size);
    OPENSSL_free(der);
    return bytes;
}

PKeyPtr ParsePublicKey(const Bytes& publicKey) {
    const unsigned char* at = publicKey.data();
    PKeyPtr key(d2i_PUBKEY(nullptr, &at, static_cast<long>(publicKey.size())));
    if (key && at != publicKey.data() + publicKey.size()) key.reset();
    return key;
}

PairRecord ToRecord(EVP_PKEY* pair, Role role, const std::string& serial, const MasterKey& master) {
    PairRecord record;
    record.role = role;
    record.algorithm = AlgorithmOf(pair);
    record.publicKey = PublicKeyOf(pair);
    const Pkcs8Ptr pkcs8(EVP_PKEY2PKCS8(pair));
    Der der;
    if (pkcs8) der.size = i2d_PKCS8_PRIV_KEY_INFO(pkcs8.get(), &der.bytes);
    if (der.size <= 0) throw Failure(kCryptoFailed, "writing a private key");
    record.wrappedPrivate = Wrap(master, der.bytes, static_cast<std::size_t>(der.size),
                                 WrapContext(serial, role, record.publicKey));
    return record;
}

Bytes WrapAnew(const PairRecord& record, const Bytes& wrapped, const std::string& serial,
               const MasterKey& from, const MasterKey& to) {
    const std::string context = WrapContext(serial, record.role, record.publicKey);
    const SecretBytes der = Unwrap(from, wrapped, context);
    return Wrap(to, der.data(), der.size(), context);
}

PKeyPtr OpenPrivate(const PairRecord& record, const Bytes& wrapped, const std::string& serial,
                    const MasterKey& master) {
    const SecretBytes der =
        Unwrap(master, wrapped, WrapContext(serial, record.role, record.publicKey));
    const unsigned char* at = der.data();
    const Pkcs8Ptr pkcs8(d2i_PKCS8_PRIV_KEY_INFO(nullptr, &at, static_cast<long>(der.size())));
    PKeyPtr pair(pkcs8 ? EVP_PKCS82PKEY(pkcs8.get()) : nullptr);
    if (!pair) throw Failure(kStateDamaged, "a private key");
    return pair;
}

}  // namespace softkey

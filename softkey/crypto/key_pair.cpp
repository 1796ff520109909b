#include "softkey/crypto/key_pair.h"

#include <openssl/core_names.h>

#include <algorithm>
#include <array>

#include "softkey/crypto/der.h"
#include "softkey/crypto/openssl_errors.h"
#include "softkey/crypto/rsa_key.h"
#include "softkey/crypto/sm2_cipher.h"
#include "softkey/result.h"

namespace softkey {
namespace {

std::string WrapContext(const std::string& serial, Role role, const Bytes& publicKey) {
    std::string context = "pair/" + serial + "/" + std::to_string(static_cast<int>(role)) + "/";
    context.append(publicKey.begin(), publicKey.end());
    return context;
}

constexpr std::size_t kNumberSize = kSm2NumberSize;

// Where the private number of an SM2 pair begins; null when it is not there. Earlier versions
// wrapped PKCS#8, in which version 1 and the head of an octet string of 32 bytes stand before it.
const std::uint8_t* FindNumber(const SecretBytes& plain) {
    constexpr std::array<std::uint8_t, 5> kBefore{0x02, 0x01, 0x01, 0x04, kNumberSize};
    if (plain.size() == kNumberSize) return plain.data();
    const std::uint8_t* const end = plain.data() + plain.size();
    const std::uint8_t* const at = std::search(plain.data(), end, kBefore.begin(), kBefore.end());
    const std::size_t rest = static_cast<std::size_t>(end - at);
    return rest >= kBefore.size() + kNumberSize ? at + kBefore.size() : nullptr;
}

PKeyPtr OpenSm2(const SecretBytes& plain, const Bytes& publicKey) {
    const std::uint8_t* const bytes = FindNumber(plain);
    if (bytes == nullptr || publicKey.size() < kSm2PointSize) {
        throw Failure(kStateDamaged, "a private key");
    }
    const BignumPtr number = ToSm2Number(bytes);
    if (!IsSm2PrivateNumber(number.get())) throw Failure(kStateDamaged, "a private key");
    return MakeSm2Pair(number.get(), {publicKey.end() - kSm2PointSize, publicKey.end()});
}

}  // namespace

PKeyPtr GeneratePair(Algorithm algorithm) {
    constexpr int kRsaBits = 2048;
    if (algorithm == Algorithm::kRsa) return GenerateRsaPair(kRsaBits);
    return Made(PKeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2")), "making a key pair");
}

// OpenSSL's own writers and readers of private keys leave copies
// on the ordinary heap; its parameters stay on the secure one.
SecretBytes Sm2NumberOf(const EVP_PKEY* pair) {
    OSSL_PARAM* raw = nullptr;
    const int exported = EVP_PKEY_todata(pair, EVP_PKEY_KEYPAIR, &raw);
    const ParamsPtr params(raw);
    Require(exported == 1, "taking a pair apart");
    const OSSL_PARAM* const number = OSSL_PARAM_locate_const(raw, OSSL_PKEY_PARAM_PRIV_KEY);
    if (number == nullptr || number->data_size != kNumberSize) {
        throw Failure(kBadArgument, "a pair without a private half");
    }
    SecretBytes bytes(kNumberSize);  // the parameter is in the machine's order, least byte first
    const auto* const data = static_cast<const std::uint8_t*>(number->data);
    std::reverse_copy(data, data + kNumberSize, bytes.data());
    return bytes;
}

PKeyPtr MakeSm2Pair(const BIGNUM* number, const Bytes& point) {
    const ParamBuilderPtr builder(OSSL_PARAM_BLD_new());
    const bool filled =
        builder && IsSm2PrivateNumber(number) &&
        OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, "SM2", 0) == 1 &&
        OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, point.data(),
                                         point.size()) == 1 &&
        OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_PRIV_KEY, number) == 1;
    const ParamsPtr params(filled ? OSSL_PARAM_BLD_to_param(builder.get()) : nullptr);
    const PKeyCtxPtr ctx(EVP_PKEY_CTX_new_from_name(nullptr, "SM2", nullptr));
    EVP_PKEY* pair = nullptr;
    Require(params && ctx && EVP_PKEY_fromdata_init(ctx.get()) == 1 &&
                EVP_PKEY_fromdata(ctx.get(), &pair, EVP_PKEY_KEYPAIR, params.get()) == 1,
            "a key pair");
    return PKeyPtr(pair);
}

bool IsA(const EVP_PKEY* pair, std::string_view name) {
    const char* const own = EVP_PKEY_get0_type_name(pair);
    return own != nullptr && own == name;
}

Algorithm AlgorithmOf(const EVP_PKEY* pair) {
    if (IsA(pair, "RSA")) return Algorithm::kRsa;
    if (IsA(pair, "SM2")) return Algorithm::kSm2;
    throw Failure(kNotSupported, "neither an RSA nor an SM2 key");
}

Bytes PublicKeyOf(const EVP_PKEY* pair) {
    return Encoded([pair](auto der) { return i2d_PUBKEY(pair, der); }, "writing a public key");
}

PKeyPtr ParsePublicKey(const Bytes& publicKey) {
    const unsigned char* at = publicKey.data();
    PKeyPtr key(d2i_PUBKEY(nullptr, &at, static_cast<long>(publicKey.size())));
    ForgetErrors();
    if (at != publicKey.data() + publicKey.size()) key.reset();
    return key;
}

PairRecord ToRecord(EVP_PKEY* pair, Role role, const std::string& serial, const MasterKey& master) {
    PairRecord record;
    record.role = role;
    record.algorithm = AlgorithmOf(pair);
    record.publicKey = PublicKeyOf(pair);
    const std::string context = WrapContext(serial, role, record.publicKey);
    const SecretBytes secret =
        record.algorithm == Algorithm::kSm2 ? Sm2NumberOf(pair) : RsaNumbersOf(pair);
    record.wrappedPrivate = Wrap(master, secret.data(), secret.size(), context);
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
    if (record.algorithm == Algorithm::kSm2) return OpenSm2(der, record.publicKey);
    PKeyPtr pair = ReadRsaPair(der);
    if (!pair) throw Failure(kStateDamaged, "a private key");
    return pair;
}

}  // namespace softkey

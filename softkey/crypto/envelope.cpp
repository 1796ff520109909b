#include "softkey/crypto/envelope.h"

#include <openssl/asn1t.h>
#include <openssl/ec.h>
#include <openssl/objects.h>
#include <openssl/pem.h>

#include <algorithm>
#include <optional>

#include "softkey/crypto/base64.h"
#include "softkey/crypto/decryption.h"
#include "softkey/crypto/der.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/openssl_errors.h"
#include "softkey/crypto/sm2_cipher.h"
#include "softkey/crypto/vault.h"

namespace softkey {

// OpenSSL's macros for ASN.1 types name them by plain identifiers.
struct EnvelopeAsn1 {
    X509_ALGOR* symAlgorithm;
    ASN1_TYPE* symKey;
    ASN1_BIT_STRING* publicKey;
    ASN1_BIT_STRING* privateKey;
};

// clang-format off
ASN1_SEQUENCE(EnvelopeAsn1) = {
    ASN1_SIMPLE(EnvelopeAsn1, symAlgorithm, X509_ALGOR),
    ASN1_SIMPLE(EnvelopeAsn1, symKey, ASN1_ANY),
    ASN1_SIMPLE(EnvelopeAsn1, publicKey, ASN1_BIT_STRING),
    ASN1_SIMPLE(EnvelopeAsn1, privateKey, ASN1_BIT_STRING)
} static_ASN1_SEQUENCE_END(EnvelopeAsn1)
IMPLEMENT_STATIC_ASN1_ALLOC_FUNCTIONS(EnvelopeAsn1)
    // clang-format on

    namespace {
    constexpr std::size_t kSm4KeySize = 16;
    constexpr std::size_t kNumberSize = kSm2NumberSize;
    constexpr std::size_t kPointSize = kSm2PointSize;
    // 1.2.156.10197.1.104, and .1 for the mode, which some authorities leave out.
    constexpr std::string_view kSm4 = "\x2A\x81\x1C\xCF\x55\x01\x68";
    constexpr std::string_view kSm4Ecb = "\x2A\x81\x1C\xCF\x55\x01\x68\x01";

    using AsnPtr = std::unique_ptr<EnvelopeAsn1, Releaser<EnvelopeAsn1_free>>;

    [[noreturn]] void Malformed(const char* what) {
        ForgetErrors();
        throw Failure(kEnvelopeMalformed, what);
    }

    // SM4 in ECB mode over whole blocks.
    SecretBytes Sm4(bool encrypt, const std::uint8_t* key, const std::uint8_t* in,
                    std::size_t size) {
        const CipherPtr cipher(EVP_CIPHER_fetch(nullptr, "SM4-ECB", nullptr));
        const CipherCtxPtr ctx(EVP_CIPHER_CTX_new());
        SecretBytes out(size);
        int length{};
        Require(
            cipher && ctx &&
                EVP_CipherInit_ex2(ctx.get(), cipher.get(), key, nullptr, static_cast<int>(encrypt),
                                   nullptr) == 1 &&
                EVP_CIPHER_CTX_set_padding(ctx.get(), 0) == 1 &&
                EVP_CipherUpdate(ctx.get(), out.data(), &length, in, static_cast<int>(size)) == 1,
            "SM4");
        return out;
    }

    // The point that belongs to a private number; nothing when the number is out of range.
    std::optional<Bytes> PointOfNumber(const BIGNUM* number) {
        if (!IsSm2PrivateNumber(number)) return std::nullopt;
        const GroupPtr group = Sm2Group();
        const auto point = Made(PointPtr(EC_POINT_new(group.get())), "a public point");
        Bytes bytes(kPointSize);
        Require(EC_POINT_mul(group.get(), point.get(), number, nullptr, nullptr, nullptr) == 1 &&
                    EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED,
                                       bytes.data(), bytes.size(), nullptr) == bytes.size(),
                "a public point");
        return bytes;
    }

    Bytes StringBytes(const ASN1_STRING* string) {
        const unsigned char* const data = ASN1_STRING_get0_data(string);
        return {data, data + ASN1_STRING_length(string)};
    }

    // A SEQUENCE, or an octet string that holds its parts one behind the other; else nothing.
    Bytes SealedKeyOf(const EnvelopeAsn1* envelope) {
        const int type = envelope->symKey->type;
        if (type != V_ASN1_SEQUENCE && type != V_ASN1_OCTET_STRING) return {};
        Bytes bytes = StringBytes(envelope->symKey->value.asn1_string);
        const bool parts = !bytes.empty() && bytes.front() == kUncompressed;
        return parts == (type == V_ASN1_OCTET_STRING) ? bytes : Bytes();
    }

    AsnPtr ReadAsn(const Bytes& der) {
        const unsigned char* at = der.data();
        const long size = static_cast<long>(der.size());
        AsnPtr envelope(reinterpret_cast<EnvelopeAsn1*>(
            ASN1_item_d2i(nullptr, &at, size, ASN1_ITEM_rptr(EnvelopeAsn1))));
        if (!envelope || !IsDer(der)) Malformed("not an SM2EnvelopedKey");
        const ASN1_OBJECT* const oid = envelope->symAlgorithm->algorithm;
        const std::string_view algorithm(reinterpret_cast<const char*>(OBJ_get0_data(oid)),
                                         OBJ_length(oid));
        if (algorithm != kSm4Ecb && algorithm != kSm4) Malformed("its algorithm is not SM4");
        int parameters{};
        X509_ALGOR_get0(nullptr, &parameters, nullptr, envelope->symAlgorithm);
        if (parameters != V_ASN1_UNDEF && parameters != V_ASN1_NULL) {
            Malformed("SM4 in ECB mode takes no parameters");
        }
        if (SealedKeyOf(envelope.get()).empty()) Malformed("its SM4 key is no SM2 cipher text");
        return envelope;
    }

    // The private number: 32 bytes, or 64 of which the first 32 are zero.
    BignumPtr NumberFrom(const SecretBytes& plain) {
        const std::size_t lead = plain.size() - kNumberSize;
        const bool clean = std::all_of(plain.data(), plain.data() + lead,
                                       [](std::uint8_t byte) { return byte == 0; });
        if (!clean) throw Failure(kEnvelopeMismatch, "its private number is too long");
        return ToSm2Number(plain.data() + lead);
    }

    void SetBits(ASN1_BIT_STRING * string, const std::uint8_t* bytes, std::size_t size) {
        Require(ASN1_BIT_STRING_set(string, const_cast<unsigned char*>(bytes),
                                    static_cast<int>(size)) == 1,
                "an envelope");
        // Without these, trailing zero bits would be cut off as unused ones.
        string->flags |= ASN1_STRING_FLAG_BITS_LEFT;
    }

    Bytes SealSymmetricKey(EVP_PKEY * recipient, const SecretBytes& key) {
        const PKeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, recipient, nullptr));
        std::size_t length{};
        Require(ctx && EVP_PKEY_encrypt_init(ctx.get()) == 1 &&
                    EVP_PKEY_encrypt(ctx.get(), nullptr, &length, key.data(), key.size()) == 1,
                "sealing");
        Bytes cipher(length);
        Require(EVP_PKEY_encrypt(ctx.get(), cipher.data(), &length, key.data(), key.size()) == 1,
                "sealing");
        cipher.resize(length);
        return cipher;
    }

}  // namespace

Bytes SealEnvelope(EVP_PKEY* recipient, EVP_PKEY* pair) {
    if (!IsA(recipient, "SM2")) throw Failure(kBadArgument, "the recipient is not SM2");
    if (!IsA(pair, "SM2")) throw Failure(kBadArgument, "the pair to seal is not SM2");
    const SecretBytes number = Sm2NumberOf(pair);
    // What could not sign is not sealed either.
    const std::optional<Bytes> point = PointOfNumber(ToSm2Number(number.data()).get());
    if (!point) {
        throw Failure(kBadArgument, "the private half of the pair to seal is out of range");
    }
    SecretBytes key(kSm4KeySize);
    FillRandom(key.data(), key.size());
    const Bytes sealedKey = SealSymmetricKey(recipient, key);
    const SecretBytes sealedNumber = Sm4(true, key.data(), number.data(), number.size());

    const auto envelope = Made(AsnPtr(EnvelopeAsn1_new()), "an envelope");
    const unsigned char* at = sealedKey.data();
    Require(
        X509_ALGOR_set0(envelope->symAlgorithm, OBJ_nid2obj(NID_sm4_ecb), V_ASN1_UNDEF, nullptr) ==
                1 &&
            d2i_ASN1_TYPE(&envelope->symKey, &at, static_cast<long>(sealedKey.size())) != nullptr,
        "an envelope");
    SetBits(envelope->publicKey, point->data(), point->size());
    SetBits(envelope->privateKey, sealedNumber.data(), sealedNumber.size());
    return Encoded(
        [&envelope](auto der) {
            return ASN1_item_i2d(reinterpret_cast<const ASN1_VALUE*>(envelope.get()), der,
                                 ASN1_ITEM_rptr(EnvelopeAsn1));
        },
        "writing an envelope");
}

PKeyPtr OpenEnvelope(const Bytes& envelope, EVP_PKEY* temporary) {
    const AsnPtr parts = ReadAsn(envelope);
    const Bytes sealedNumber = StringBytes(parts->privateKey);
    const Bytes point = StringBytes(parts->publicKey);
    if (sealedNumber.size() != kNumberSize && sealedNumber.size() != 2 * kNumberSize) {
        Malformed("its private number has neither 32 nor 64 bytes");
    }
    if (point.size() != kPointSize || point[0] != kUncompressed)
        Malformed("its public key is no point");
    const std::optional<SecretBytes> key = Decrypt(temporary, SealedKeyOf(parts.get()));
    if (!key || key->size() != kSm4KeySize) {
        throw Failure(kEnvelopeMismatch, "sealed to another key");
    }
    const SecretBytes plain = Sm4(false, key->data(), sealedNumber.data(), sealedNumber.size());
    const BignumPtr number = NumberFrom(plain);
    if (PointOfNumber(number.get()) != point) {
        throw Failure(kEnvelopeMismatch, "its private key does not belong to its public key");
    }
    return MakeSm2Pair(number.get(), point);
}

namespace {

PKeyPtr ReadRecipient(std::string_view to) {
    const std::size_t second = to.find(';');
    if (second != std::string_view::npos) to.remove_prefix(second + 1);
    const std::optional<std::vector<Bytes>> blocks = FromText(to);
    for (const Bytes& der : blocks ? *blocks : std::vector<Bytes>()) {
        if (!IsDer(der)) continue;
        const unsigned char* at = der.data();
        const X509ReqPtr request(d2i_X509_REQ(nullptr, &at, static_cast<long>(der.size())));
        PKeyPtr key(request ? X509_REQ_get_pubkey(request.get()) : nullptr);
        if (!key) key = ParsePublicKey(der);
        if (key) return key;
    }
    throw Failure(kBadArgument, "the recipient is neither a certificate request nor a public key");
}

}  // namespace

std::string SealEnvelopeText(std::string_view to, std::string_view pair) {
    const PKeyPtr recipient = ReadRecipient(to);
    const auto bio = Made(BioPtr(BIO_new_mem_buf(pair.data(), static_cast<int>(pair.size()))),
                          "the pair to seal");
    // An encrypted key gets the empty passphrase instead of a question at the terminal.
    char none[] = "";
    const PKeyPtr key(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, none));
    if (!key) {
        ForgetErrors();
        throw Failure(kBadArgument, "the pair to seal is no unencrypted private key in PEM");
    }
    return ToBase64(SealEnvelope(recipient.get(), key.get()));
}

}  // namespace softkey

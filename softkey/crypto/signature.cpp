#include "softkey/crypto/signature.h"

#include <openssl/rsa.h>

#include <optional>

#include "softkey/crypto/base64.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/request.h"
#include "softkey/result.h"

namespace softkey {
namespace {

void Require(bool done) {
    if (!done) throw Failure(kCryptoFailed, "signing");
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::optional<Bytes> FromHex(std::string_view text) {
    if (text.size() % 2 != 0) return std::nullopt;
    Bytes bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = HexValue(text[i]);
        const int low = HexValue(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes.push_back(static_cast<std::uint8_t>(high * 16 + low));
    }
    return bytes;
}

}  // namespace

Bytes ParseDigest(std::string_view text, DigestText writing, Algorithm algorithm,
                  std::int64_t hash) {
    const std::size_t size = std::string_view(DigestName(algorithm, hash)) == "SHA1" ? 20 : 32;
    std::optional<Bytes> digest;
    if (writing != DigestText::kBase64) digest = FromHex(text);
    if (writing != DigestText::kHex && (!digest || digest->size() != size)) {
        digest = FromBase64(text);
    }
    if (!digest || digest->size() != size) {
        throw Failure(kBadArgument, "the digest must be " + std::to_string(size) +
                                        " bytes, as hexadecimal or Base64");
    }
    return std::move(*digest);
}

Bytes SignText(EVP_PKEY* pair, std::int64_t hash, std::string_view text) {
    const Algorithm algorithm = AlgorithmOf(pair);
    const MdCtxPtr ctx(EVP_MD_CTX_new());
    EVP_PKEY_CTX* keyCtx = nullptr;
    Require(ctx && EVP_DigestSignInit_ex(ctx.get(), &keyCtx, DigestName(algorithm, hash), nullptr,
                                         nullptr, pair, nullptr) == 1);
    if (algorithm == Algorithm::kSm2) {
        Require(EVP_PKEY_CTX_set1_id(keyCtx, kSm2Identity.data(), kSm2Identity.size()) == 1);
    }
    // Two steps: the call that does both in one refuses SM2 before it has the identity.
    Require(EVP_DigestSignUpdate(ctx.get(), text.data(), text.size()) == 1);
    Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(pair)));
    std::size_t length = signature.size();
    Require(EVP_DigestSignFinal(ctx.get(), signature.data(), &length) == 1);
    signature.resize(length);
    return signature;
}

Bytes SignDigest(EVP_PKEY* pair, std::int64_t hash, const Bytes& digest) {
    const PKeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, pair, nullptr));
    Require(ctx && EVP_PKEY_sign_init(ctx.get()) == 1);
    const Algorithm algorithm = AlgorithmOf(pair);
    if (algorithm == Algorithm::kRsa) {
        const EVP_MD* const md = EVP_get_digestbyname(DigestName(algorithm, hash));
        Require(md != nullptr && EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) == 1 &&
                EVP_PKEY_CTX_set_signature_md(ctx.get(), md) == 1);
    }
    Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(pair)));
    std::size_t length = signature.size();
    Require(EVP_PKEY_sign(ctx.get(), signature.data(), &length, digest.data(), digest.size()) == 1);
    signature.resize(length);
    return signature;
}

}  // namespace softkey

#include "softkey/crypto/signature.h"

#include <openssl/rsa.h>

#include <optional>

#include "softkey/crypto/base64.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/request.h"
#include "softkey/result.h"

namespace softkey {
namespace {

constexpr const char* kWhat = N_("signing");

// Nothing unless it is that many bytes.
std::optional<Bytes> FromHex(std::string_view text, std::size_t size) {
    std::optional<Bytes> bytes(size);
    std::size_t length{};
    if (OPENSSL_hexstr2buf_ex(bytes->data(), size, &length, std::string(text).c_str(), '\0') != 1 ||
        length != size) {
        bytes.reset();
    }
    ForgetErrors();
    return bytes;
}

}  // namespace

Bytes ParseDigest(std::string_view text, DigestText writing, Algorithm algorithm,
                  std::int64_t hash) {
    const std::size_t size = std::string_view(DigestName(algorithm, hash)) == "SHA1" ? 20 : 32;
    std::optional<Bytes> digest;
    if (writing != DigestText::kBase64) digest = FromHex(text, size);
    if (writing != DigestText::kHex && !digest) digest = FromBase64(text);
    if (!digest || digest->size() != size) {
        throw Failure(kBadArgument,
                      Sentence("the digest must be {1} bytes, as hexadecimal or Base64",
                               {std::to_string(size)}));
    }
    return std::move(*digest);
}

Signer::Signer(EVP_PKEY* pair) : pair_(pair), algorithm_(AlgorithmOf(pair)) {
    if (algorithm_ != Algorithm::kSm2) return;
    constexpr auto kHash = static_cast<std::int64_t>(Hash::kOwn);
    MdCtxPtr text = BegunText(kHash);
    // The first bytes, even none, take the identity in.
    Require(EVP_DigestSignUpdate(text.get(), "", 0) == 1, kWhat);
    digest_ = BegunDigest(kHash);
    text_ = std::move(text);
}

MdCtxPtr Signer::BegunText(std::int64_t hash) const {
    MdCtxPtr ctx(EVP_MD_CTX_new());
    if (text_) {
        Require(ctx && EVP_MD_CTX_copy_ex(ctx.get(), text_.get()) == 1, kWhat);
        // It ends with its first signature: OpenSSL need not copy it once more.
        EVP_MD_CTX_set_flags(ctx.get(), EVP_MD_CTX_FLAG_FINALISE);
        return ctx;
    }
    EVP_PKEY_CTX* keyCtx = nullptr;
    Require(ctx && EVP_DigestSignInit_ex(ctx.get(), &keyCtx, DigestName(algorithm_, hash), nullptr,
                                         nullptr, pair_, nullptr) == 1,
            kWhat);
    if (algorithm_ == Algorithm::kSm2) {
        Require(EVP_PKEY_CTX_set1_id(keyCtx, kSm2Identity.data(), kSm2Identity.size()) == 1, kWhat);
    }
    return ctx;
}

PKeyCtxPtr Signer::BegunDigest(std::int64_t hash) const {
    PKeyCtxPtr ctx(digest_ ? EVP_PKEY_CTX_dup(digest_.get())
                           : EVP_PKEY_CTX_new_from_pkey(nullptr, pair_, nullptr));
    Require(ctx && (digest_ || EVP_PKEY_sign_init(ctx.get()) == 1), kWhat);
    if (algorithm_ == Algorithm::kRsa) {
        const EVP_MD* const md = EVP_get_digestbyname(DigestName(Algorithm::kRsa, hash));
        Require(md != nullptr && EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) == 1 &&
                    EVP_PKEY_CTX_set_signature_md(ctx.get(), md) == 1,
                kWhat);
    }
    return ctx;
}

Bytes Signer::OverText(std::int64_t hash, std::string_view text) const {
    DigestName(algorithm_, hash);  // refuses what is none
    const MdCtxPtr ctx = BegunText(hash);
    // Two steps: the call that does both in one refuses SM2 before it has the identity.
    Require(EVP_DigestSignUpdate(ctx.get(), text.data(), text.size()) == 1, kWhat);
    Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(pair_)));
    std::size_t length = signature.size();
    Require(EVP_DigestSignFinal(ctx.get(), signature.data(), &length) == 1, kWhat);
    signature.resize(length);
    return signature;
}

Bytes Signer::OverDigest(std::int64_t hash, const Bytes& digest) const {
    const std::unique_lock<std::mutex> alone(digestInUse_, std::try_to_lock);
    const bool ready = alone.owns_lock() && digest_;
    const PKeyCtxPtr own = ready ? nullptr : BegunDigest(hash);
    Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(pair_)));
    std::size_t length = signature.size();
    Require(EVP_PKEY_sign(ready ? digest_.get() : own.get(), signature.data(), &length,
                          digest.data(), digest.size()) == 1,
            kWhat);
    signature.resize(length);
    return signature;
}

Bytes SignText(EVP_PKEY* pair, std::int64_t hash, std::string_view text) {
    return Signer(pair).OverText(hash, text);
}

Bytes SignDigest(EVP_PKEY* pair, std::int64_t hash, const Bytes& digest) {
    return Signer(pair).OverDigest(hash, digest);
}

}  // namespace softkey

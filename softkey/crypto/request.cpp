#include "softkey/crypto/request.h"

#include "softkey/crypto/base64.h"
#include "softkey/crypto/der.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/result.h"

namespace softkey {
namespace {

void Sign(X509_REQ* request, EVP_PKEY* pair, const char* digest) {
    const MdCtxPtr ctx(EVP_MD_CTX_new());
    EVP_PKEY_CTX* keyCtx = nullptr;
    Require(ctx && EVP_DigestSignInit_ex(ctx.get(), &keyCtx, digest, nullptr, nullptr, pair,
                                         nullptr) == 1,
            "preparing a signature");
    if (AlgorithmOf(pair) == Algorithm::kSm2) {
        Require(EVP_PKEY_CTX_set1_id(keyCtx, kSm2Identity.data(), kSm2Identity.size()) == 1,
                "setting the identity");
    }
    Require(X509_REQ_sign_ctx(request, ctx.get()) > 0, "signing a request");
}

}  // namespace

void SetCommonName(X509_NAME* name, std::string_view commonName) {
    Require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(commonName.data()),
                                       static_cast<int>(commonName.size()), 0, 0) == 1,
            "a name");
}

const char* DigestName(Algorithm algorithm, std::int64_t hash) {
    if (hash < 0 || hash > 3) {
        throw Failure(kBadArgument, Sentence("HashType {1}", {std::to_string(hash)}));
    }
    if (algorithm == Algorithm::kSm2) return "SM3";
    switch (static_cast<Hash>(hash)) {
        case Hash::kSha1:
            return "SHA1";
        case Hash::kSm3:
            throw Failure(kNotSupported, "RSA with SM3");
        default:
            return "SHA256";
    }
}

std::string MakeRequest(EVP_PKEY* pair, std::int64_t hash, std::string_view commonName) {
    const char* const digest = DigestName(AlgorithmOf(pair), hash);
    const auto request = Made(X509ReqPtr(X509_REQ_new()), "making a request");
    const auto name = Made(X509NamePtr(X509_NAME_new()), "making a request");
    SetCommonName(name.get(), commonName);
    Require(X509_REQ_set_version(request.get(), X509_REQ_VERSION_1) == 1 &&
                X509_REQ_set_subject_name(request.get(), name.get()) == 1 &&
                X509_REQ_set_pubkey(request.get(), pair) == 1,
            "filling a request");
    Sign(request.get(), pair, digest);
    return ToBase64(Encoded([&request](auto der) { return i2d_X509_REQ(request.get(), der); },
                            "writing a request"));
}

}  // namespace softkey

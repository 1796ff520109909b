#include "softkey/crypto/openssl_errors.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <iterator>

#include "softkey/result.h"

namespace softkey {

namespace {

// All that it says when there is no memory for the context of a digest or a cipher, for a copy of
// it, or within SM2.
constexpr unsigned long kLacks[] = {ERR_PACK(ERR_LIB_EVP, 0, EVP_R_INITIALIZATION_ERROR),
                                    ERR_PACK(ERR_LIB_EVP, 0, EVP_R_NOT_ABLE_TO_COPY_CTX),
                                    ERR_PACK(ERR_LIB_SM2, 0, ERR_R_INTERNAL_ERROR)};

}  // namespace

bool OpensslLackedMemory() noexcept {
    bool lacked = false;
    while (const unsigned long error = ERR_get_error()) {
        lacked |= ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE ||
                  std::find(std::begin(kLacks), std::end(kLacks), error) != std::end(kLacks);
    }
    return lacked;
}

void ForgetErrors() {
    if (OpensslLackedMemory()) throw Failure(kNoMemory);
}

void Require(bool done, const char* what) {
    if (done) return;
    ForgetErrors();
    throw Failure(kCryptoFailed, what);
}

}  // namespace softkey

#include "softkey/crypto/openssl_errors.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include "softkey/result.h"

namespace softkey {

namespace {

// All that it says when a digest or a cipher finds no memory for its context, or for a copy of it.
constexpr unsigned long kLacksContext = ERR_PACK(ERR_LIB_EVP, 0, EVP_R_INITIALIZATION_ERROR);
constexpr unsigned long kLacksCopy = ERR_PACK(ERR_LIB_EVP, 0, EVP_R_NOT_ABLE_TO_COPY_CTX);

}  // namespace

bool OpensslLackedMemory() noexcept {
    bool lacked = false;
    while (const unsigned long error = ERR_get_error()) {
        lacked |= ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE || error == kLacksContext ||
                  error == kLacksCopy;
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

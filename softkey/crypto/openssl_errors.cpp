#include "softkey/crypto/openssl_errors.h"

#include <openssl/err.h>

#include "softkey/result.h"

namespace softkey {

bool OpensslLackedMemory() noexcept {
    bool lacked = false;
    while (const unsigned long error = ERR_get_error()) {
        lacked |= ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE;
    }
    return lacked;
}

void ForgetErrors() {
    if (OpensslLackedMemory()) throw Failure(kNoMemory);
}

}  // namespace softkey

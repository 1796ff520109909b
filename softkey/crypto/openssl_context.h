// OpenSSL 3.0 takes the methods of a provider for complete although it found no memory for one of
// them, and never looks for that one again: a process would verify no PIN any more. After a failure
// the calls see whether it still has what they need, and leave a context that has not.
#ifndef SOFTKEY_CRYPTO_OPENSSL_CONTEXT_H
#define SOFTKEY_CRYPTO_OPENSSL_CONTEXT_H

#include <openssl/types.h>

#include "softkey/codes.h"

namespace softkey {

// A call that ends for lack of memory, or with a cryptographic operation that failed, may have cost
// a method. The code is the call's, and returned.
Code SuspectOpenssl(Code code) noexcept;

// For as long as it lives this thread works with a whole context; mostly that is OpenSSL's own.
class WholeOpenssl {
public:
    WholeOpenssl() noexcept;
    ~WholeOpenssl();
    WholeOpenssl(const WholeOpenssl&) = delete;
    WholeOpenssl& operator=(const WholeOpenssl&) = delete;

private:
    OSSL_LIB_CTX* before_ = nullptr;
};

}  // namespace softkey

#endif

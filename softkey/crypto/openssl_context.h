// OpenSSL 3.0 takes the methods of a provider for complete although it found no memory for one of
// them, and never looks for that one again: a process would verify no PIN any more. After a failure
// the calls see whether it still has what they need, and leave a context that has not.
#ifndef SOFTKEY_CRYPTO_OPENSSL_CONTEXT_H
#define SOFTKEY_CRYPTO_OPENSSL_CONTEXT_H

#include <openssl/types.h>

#include "softkey/codes.h"

namespace softkey {

// The code that a call ends with; that of no memory where it would be told of what OpenSSL could
// not do for want of a method that is lost. The next call leaves the context then.
Code SuspectOpenssl(Code code) noexcept;

// The context that the calls work with; null is OpenSSL's own. Keys that were opened in another one
// still ask that for its methods.
const OSSL_LIB_CTX* OpensslInUse() noexcept;

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

#ifndef SOFTKEY_TOKEN_GUARDED_H
#define SOFTKEY_TOKEN_GUARDED_H

#include <exception>

#include "softkey/crypto/openssl_context.h"
#include "softkey/crypto/openssl_errors.h"
#include "softkey/misbehaviour/interlude.h"
#include "softkey/result.h"

namespace softkey {

// The code that the work of an entry point answers, or that stands for what it throws; only the
// plan's exception leaves. What a client left in OpenSSL's errors is not ours, and nothing of ours
// stays there.
template <typename Work>
int Guarded(Work work) {
    OpensslLackedMemory();
    try {
        const int code = work();
        OpensslLackedMemory();
        return code;
    } catch (const PlannedException&) {
        throw;
    } catch (const Failure& failure) {
        return SuspectOpenssl(OpensslLackedMemory() ? kNoMemory : failure.code());
    } catch (const std::exception&) {  // nothing but lack of memory is thrown otherwise
        OpensslLackedMemory();
        return SuspectOpenssl(kNoMemory);
    }
}

}  // namespace softkey

#endif

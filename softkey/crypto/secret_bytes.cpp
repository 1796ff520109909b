#include "softkey/crypto/secret_bytes.h"

#include <openssl/crypto.h>

#ifdef KESTA_ADDRESS_SANITIZED
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>

#include "softkey/crypto/openssl_errors.h"
#include "softkey/result.h"

namespace softkey {
namespace {

// Room for some hundred private keys, and less than a process may lock on any machine of today.
constexpr std::size_t kHeapSize = 256 * 1024;
constexpr std::size_t kSmallestBlock = 32;

// OpenSSL keeps there what leads to the rest of its random generators; the leak checker does not
// look into memory that did not come from malloc.
void TellLeakChecker() {
#ifdef KESTA_ADDRESS_SANITIZED
    // The heap is somewhere around its first block.
    void* const first = OPENSSL_secure_malloc(kSmallestBlock);
    __lsan_register_root_region(static_cast<char*>(first) - kHeapSize, 2 * kHeapSize);
    OPENSSL_secure_free(first);
#endif
}

}  // namespace

void KeepOpenssl() {
    static const struct Start {
        Start() {
            // Without its context, for which there was no memory, it would crash.
            Require(OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1 &&
                        OSSL_LIB_CTX_get0_global_default() != nullptr,
                    "OpenSSL does not start");
        }
    } started;
}

void PrepareSecureHeap() {
    KeepOpenssl();
    // What fails is tried again by the next call: memory may be there by then.
    static const struct Heap {
        Heap() {
            if (CRYPTO_secure_malloc_initialized() == 0) {
                CRYPTO_secure_malloc_init(kHeapSize, kSmallestBlock);
                TellLeakChecker();
            }
            if (CRYPTO_secure_malloc_initialized() == 0) throw Failure(kNoMemory, "no secure heap");
        }
    } heap;
}

SecretBytes::SecretBytes(std::size_t size) : size_(size) {
    PrepareSecureHeap();
    bytes_ = static_cast<std::uint8_t*>(OPENSSL_secure_zalloc(size));
    if (bytes_ == nullptr) throw Failure(kNoMemory, "the secure heap is full");
}

SecretBytes::SecretBytes(const std::uint8_t* bytes, std::size_t size) : SecretBytes(size) {
    std::copy_n(bytes, size, bytes_);
}

SecretBytes::~SecretBytes() {
    OPENSSL_secure_clear_free(bytes_, size_);
}

}  // namespace softkey

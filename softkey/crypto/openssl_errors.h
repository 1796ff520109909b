// What OpenSSL noted while it answered. Where memory ran out it answers as for something malformed,
// and only its notes tell.
#ifndef SOFTKEY_CRYPTO_OPENSSL_ERRORS_H
#define SOFTKEY_CRYPTO_OPENSSL_ERRORS_H

namespace softkey {

// Forgets the notes; whether one of them says that memory ran out.
bool OpensslLackedMemory() noexcept;
// Forgets them. Throws kNoMemory when memory ran out.
void ForgetErrors();
// Throws kNoMemory or kCryptoFailed, and forgets the notes, unless it was done.
void Require(bool done, const char* what);

}  // namespace softkey

#endif

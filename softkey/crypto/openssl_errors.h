// What OpenSSL noted while it answered. Where memory ran out it answers as for something malformed,
// and only its notes tell.
#ifndef SOFTKEY_CRYPTO_OPENSSL_ERRORS_H
#define SOFTKEY_CRYPTO_OPENSSL_ERRORS_H

namespace softkey {

// Forgets the notes; whether one of them says that memory ran out.
bool OpensslLackedMemory() noexcept;
// Forgets them. Throws kNoMemory when memory ran out.
void ForgetErrors();

}  // namespace softkey

#endif

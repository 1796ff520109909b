// How the event library, which sees a removal first, asks the token library of the same process to
// look too and drop the secrets of the key that is gone. Neither shows other names than those of
// the contract, so the request is a serial number that no key can have, given to GetPinInfo.
#ifndef SOFTKEY_TOKEN_LOOK_REQUEST_H
#define SOFTKEY_TOKEN_LOOK_REQUEST_H

#include <cstring>

namespace softkey {

constexpr char kLookRequest[] = "\x01look";

inline bool IsLookRequest(const char* serial) {
    return serial != nullptr && std::strcmp(serial, kLookRequest) == 0;
}

}  // namespace softkey

#endif

// What the targets of the software key share: pairs made once, and small changes to what is well
// formed.
#ifndef KESTA_SOFTKEY_FUZZ_H
#define KESTA_SOFTKEY_FUZZ_H

#include <string>

#include "fuzz_target.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/result.h"

inline EVP_PKEY* OnePair() {
    static const softkey::PKeyPtr pair = softkey::GeneratePair(softkey::Algorithm::kSm2);
    return pair.get();
}
inline EVP_PKEY* AnotherPair() {
    static const softkey::PKeyPtr pair = softkey::GeneratePair(softkey::Algorithm::kSm2);
    return pair.get();
}

inline std::string TextOf(const std::uint8_t* data, std::size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

// Each two bytes of data change one byte of whole: its place (as a share of the length) and a mask.
// An odd byte at the end cuts so many off. What comes out is close to well formed, so that it gets
// far.
inline softkey::Bytes Changed(softkey::Bytes whole, const std::uint8_t* data, std::size_t size) {
    for (std::size_t i = 0; i + 1 < size; i += 2)
        whole[data[i] * whole.size() / 256] ^= data[i + 1];
    if (size % 2 == 1) whole.resize(whole.size() - data[size - 1] % whole.size());
    return whole;
}

// Runs what may refuse, with these codes alone. True when it did not.
template <class Function>
bool Accepted(const Function& function, std::initializer_list<int> codes) {
    try {
        function();
        return true;
    } catch (const softkey::Failure& failure) {
        for (const int code : codes) {
            if (failure.code() == code) return false;
        }
        std::fprintf(stderr, "refused with %d: %s\n", static_cast<int>(failure.code()),
                     failure.what());
        std::abort();
    }
}

#endif

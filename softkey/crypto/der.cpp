#include "softkey/crypto/der.h"

#include <openssl/asn1.h>

#include "softkey/crypto/openssl_errors.h"

namespace softkey {
namespace {

// What ASN1_get_object answers for what is broken (0x80) or of indefinite length.
constexpr int kNotDer = 0x81;

// Far more than any certificate needs, and far less than the stack has room for.
constexpr int kDeepest = 64;

// The end of the element that begins at `at`; null when it is not DER.
const std::uint8_t* EndOfElement(const std::uint8_t* at, const std::uint8_t* end, int depth = 0) {
    if (depth > kDeepest) return nullptr;
    const std::uint8_t* content = at;
    long length{};
    int tag{};
    int tagClass{};
    const int kind = ASN1_get_object(&content, &length, &tag, &tagClass, end - at);
    if ((kind & kNotDer) != 0) return nullptr;
    const std::uint8_t* const stop = content + length;
    if (ASN1_object_size(0, static_cast<int>(length), tag) != stop - at) return nullptr;
    if ((kind & V_ASN1_CONSTRUCTED) != 0) {
        while (content != nullptr && content < stop) {
            content = EndOfElement(content, stop, depth + 1);
        }
        if (content == nullptr) return nullptr;
    }
    return stop;
}

}  // namespace

bool IsDer(const Bytes& bytes) {
    const std::uint8_t* const end = bytes.data() + bytes.size();
    const bool is = !bytes.empty() && EndOfElement(bytes.data(), end) == end;
    ForgetErrors();
    return is;
}

}  // namespace softkey

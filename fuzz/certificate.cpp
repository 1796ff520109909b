// What an authority sent: read, or refused as malformed; what was read is the same when written
// again.
#include "softkey/crypto/certificate.h"

#include "softkey/crypto/base64.h"
#include "softkey/crypto/der.h"
#include "softkey_fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace softkey;
    const std::string text = TextOf(data, size);
    for (const std::string& sent : {text, ToBase64(data, size)}) {
        std::vector<X509Ptr> found;
        Accepted([&] { found = ParseCertificates(sent); }, {kCertificateMalformed});
        for (const X509Ptr& certificate : found) {
            const Bytes der = CertificateDer(certificate.get());
            FUZZ_EXPECT(IsDer(der));
            FUZZ_EXPECT(ParseCertificates(ToBase64(der)).size() == 1);
            Accepted([&] { InformationBlock(certificate.get(), Role::kSigning, Algorithm::kSm2); },
                     {kCertificateMalformed});
        }
    }
    return 0;
}

// What an escrowed pair is sealed to: a request or a public key, else a refusal that says so.
#include <openssl/pem.h>

#include "softkey/crypto/base64.h"
#include "softkey/crypto/envelope.h"
#include "softkey/crypto/request.h"
#include "softkey_fuzz.h"

namespace {

std::string Pem() {
    const softkey::BioPtr bio(BIO_new(BIO_s_mem()));
    PEM_write_bio_PrivateKey(bio.get(), AnotherPair(), nullptr, nullptr, 0, nullptr, nullptr);
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<std::size_t>(size));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace softkey;
    static const std::string pair = Pem();
    static const Bytes request = *FromBase64(MakeRequest(OnePair(), 0, "a key"));
    for (const std::string& to : {TextOf(data, size), ToBase64(Changed(request, data, size))}) {
        std::string envelope;
        if (Accepted([&] { envelope = SealEnvelopeText(to, pair); }, {kBadArgument})) {
            FUZZ_EXPECT(FromBase64(envelope).has_value());
        }
    }
    return 0;
}

// A digital envelope with some bytes changed: it opens to the pair that it holds, or is refused.
#include "softkey/crypto/envelope.h"

#include "softkey_fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace softkey;
    static const Bytes whole = SealEnvelope(OnePair(), AnotherPair());
    PKeyPtr opened;
    const bool accepted =
        Accepted([&] { opened = OpenEnvelope(Changed(whole, data, size), OnePair()); },
                 {kEnvelopeMalformed, kEnvelopeMismatch});
    FUZZ_EXPECT(!accepted || PublicKeyOf(opened.get()) == PublicKeyOf(AnotherPair()));
    Accepted([&] { OpenEnvelope(Bytes(data, data + size), OnePair()); },
             {kEnvelopeMalformed, kEnvelopeMismatch});
    return 0;
}

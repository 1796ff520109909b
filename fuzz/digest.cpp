// The text of a digest that was made elsewhere: of the right size, or refused.
#include "softkey/crypto/request.h"
#include "softkey/crypto/signature.h"
#include "softkey_fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace softkey;
    if (size < 2) return 0;
    const auto writing = static_cast<DigestText>(data[0] % 3);
    const auto algorithm = data[1] % 2 == 0 ? Algorithm::kSm2 : Algorithm::kRsa;
    const std::int64_t hash = data[1] / 2 % 6;
    Bytes digest;
    const bool accepted = Accepted(
        [&] { digest = ParseDigest(TextOf(data + 2, size - 2), writing, algorithm, hash); },
        {kBadArgument, kNotSupported});
    FUZZ_EXPECT(!accepted ||
                digest.size() == (algorithm == Algorithm::kRsa && hash == 1 ? 20U : 32U));
    return 0;
}

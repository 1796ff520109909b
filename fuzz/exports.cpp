// The exports as a sequence of calls, with a token that lies, against a plain model. The bytes draw
// the calls and their arguments, and the token's codes, texts, lengths and exceptions.
#include <exception>

#include "fuzz_target.h"
#include "sequence.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    calls::Sequence sequence;
    calls::Draw draw(data, size);
    while (draw.left() != 0) {
        try {
            sequence.call(draw, draw);
        } catch (const std::exception& difference) {
            std::fprintf(stderr, "%s:\n%s\n", sequence.shown().c_str(), difference.what());
            std::abort();
        }
    }
    return 0;
}

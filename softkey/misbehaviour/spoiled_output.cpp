#include "softkey/misbehaviour/spoiled_output.h"

#include <random>

namespace softkey {

std::string Noise(std::size_t size) {
    std::minstd_rand generator;  // no secret: each run of a test must see the same
    std::string noise;
    for (std::size_t i = 0; i < size; ++i) {
        noise += static_cast<char>(0x80U | (generator() >> 16 & 0x7FU));
    }
    return noise;
}

std::string Spoiled(const Misbehaviour& plan, std::string_view bytes) {
    using Output = Misbehaviour::Output;
    if (plan.output == Output::kGarbage) return Noise(bytes.size());
    if (plan.output == Output::kCut) bytes = bytes.substr(0, bytes.size() / 2);
    return std::string(bytes);
}

SpoiledText::SpoiledText(const Misbehaviour& plan, std::string_view text, std::size_t room)
    : written(Spoiled(plan, text)), length(written.size()) {
    if (plan.output == Misbehaviour::Output::kUnterminated && room > length) {
        written.resize(room, 'x');
    } else {
        written += '\0';
    }
}

}  // namespace softkey

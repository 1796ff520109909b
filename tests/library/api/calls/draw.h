// Random choices that a seed decides: the same seed and stream give the same choices on every
// machine, whatever was drawn before from others.
#ifndef KESTA_CALLS_DRAW_H
#define KESTA_CALLS_DRAW_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace calls {

class Draw {
public:
    Draw(std::uint64_t seed, std::uint64_t stream) : state_(seed) {
        state_ = next() ^ stream;
        state_ = next();
    }
    // SplitMix64: no state to warm up, so that each call of a sequence can have its own.
    std::uint64_t next() {
        std::uint64_t mixed = state_ += 0x9E3779B97F4A7C15;
        mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9;
        mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EB;
        return mixed ^ mixed >> 31;
    }
    unsigned below(std::size_t count) { return static_cast<unsigned>((next() >> 32) % count); }
    bool once_in(unsigned count) { return below(count) == 0; }
    template <class Choices>
    const auto& of(const Choices& choices) {
        return *(std::begin(choices) + below(std::size(choices)));
    }

private:
    std::uint64_t state_;
};

}  // namespace calls

#endif

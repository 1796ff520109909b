// Random choices that a seed decides: the same seed and stream give the same choices on every
// machine, whatever was drawn before from others. Or choices that a fuzzer's bytes decide.
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
    // What the bytes say, and where they have ended what a seed does.
    Draw(const std::uint8_t* bytes, std::size_t size) : state_(0), bytes_(bytes), left_(size) {}
    std::size_t left() const { return left_; }

    std::uint64_t next() { return left_ == 0 ? mixed() : taken(8); }
    // A choice takes as few bytes as it needs: a fuzzer learns by changing one at a time.
    unsigned below(std::size_t count) {
        const std::uint64_t any = left_ == 0 ? mixed() >> 32 : taken(count <= 256 ? 1 : 4);
        return static_cast<unsigned>(any % count);
    }
    bool once_in(unsigned count) { return below(count) == 0; }
    template <class Choices>
    const auto& of(const Choices& choices) {
        return *(std::begin(choices) + below(std::size(choices)));
    }

private:
    // SplitMix64: no state to warm up, so that each call of a sequence can have its own.
    std::uint64_t mixed() {
        std::uint64_t word = state_ += 0x9E3779B97F4A7C15;
        word = (word ^ word >> 30) * 0xBF58476D1CE4E5B9;
        word = (word ^ word >> 27) * 0x94D049BB133111EB;
        return word ^ word >> 31;
    }
    std::uint64_t taken(int count) {
        std::uint64_t word = 0;
        for (; count > 0 && left_ > 0; --count, --left_) word = word << 8 | *bytes_++;
        return word;
    }

    std::uint64_t state_;
    const std::uint8_t* bytes_ = nullptr;
    std::size_t left_ = 0;
};

}  // namespace calls

#endif

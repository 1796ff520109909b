// The record in softkey.guard: what the database beside it must be. A key of the state's own makes
// the digest of the whole database file, so that no byte of it changes, goes or comes back from an
// earlier time unnoticed.
//
// A change of the state names the digest of what comes before the file is replaced, and forgets
// that of what was afterwards. One that is killed in between leaves both names, and either file is
// right.
#ifndef SOFTKEY_STORE_GUARD_H
#define SOFTKEY_STORE_GUARD_H

#include <array>
#include <cstdint>
#include <optional>

#include "softkey/store/file.h"

namespace softkey {

using Digest = std::array<std::uint8_t, 32>;

// One state of the database. The first state has number 1; 0 is "no database yet".
struct StateName {
    std::uint64_t number = 0;
    Digest digest{};
};

class Guard {
public:
    static constexpr std::size_t kSize = 8 + 32 + 2 * (8 + 32) + 32;
    using Text = std::array<std::uint8_t, kSize>;

    static Guard Make();  // with a key of its own
    // Nothing when the text is not one that Write made.
    static std::optional<Guard> Read(const Text& text);
    Text Write() const;

    Digest DigestOf(const Bytes& image) const;
    // The state that this image is; null when it is none that the guard knows.
    const StateName* Find(const Bytes& image) const;

    StateName before;
    StateName after;

private:
    Digest key_{};
};

}  // namespace softkey

#endif

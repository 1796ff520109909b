// What a plan lets an entry point write instead of its true output.
#ifndef SOFTKEY_MISBEHAVIOUR_SPOILED_OUTPUT_H
#define SOFTKEY_MISBEHAVIOUR_SPOILED_OUTPUT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "softkey/misbehaviour/effect.h"

namespace softkey {

// As many bytes as asked for, none of them a NUL or ASCII; the same each time.
std::string Noise(std::size_t size);

// The bytes as the plan wants them: true, noise, or the first half.
std::string Spoiled(const Misbehaviour& plan, std::string_view bytes);

// A text for a room of that size, with its NUL, which must fit; without one, and as long as the
// room, when the plan wants it unterminated.
struct SpoiledText {
    SpoiledText(const Misbehaviour& plan, std::string_view text, std::size_t room);

    std::string written;
    std::size_t length;  // as it is told
};

}  // namespace softkey

#endif

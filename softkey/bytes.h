#ifndef SOFTKEY_BYTES_H
#define SOFTKEY_BYTES_H

#include <cstdint>
#include <vector>

namespace softkey {

using Bytes = std::vector<std::uint8_t>;

}  // namespace softkey

#endif

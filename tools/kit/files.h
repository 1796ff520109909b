// Reading inputs and writing outputs, with errors that name the file.
#ifndef KIT_FILES_H
#define KIT_FILES_H

#include <sys/types.h>

#include <string>
#include <string_view>

#include "kit/errors.h"

namespace kit {

// The whole of a file; "-" is standard input. At most 64 MiB.
std::string ReadInput(const std::string& path);

constexpr mode_t kOwnerAlone = 0600;

// Writes a file with these permissions, its owner's alone unless others are given, replacing it in
// one step; "-" or an empty path is standard output. Throws FileError.
void WriteOutput(const std::string& path, std::string_view content, mode_t mode = kOwnerAlone);

}  // namespace kit

#endif

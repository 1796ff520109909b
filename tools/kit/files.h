// Reading inputs and writing outputs, with errors that name the file.
#ifndef KIT_FILES_H
#define KIT_FILES_H

#include <string>
#include <string_view>

#include "kit/errors.h"

namespace kit {

// The whole of a file; "-" is standard input. At most 64 MiB.
std::string ReadInput(const std::string& path);

// Writes a file that only its owner can read, replacing it in one step; "-" or an empty path is
// standard output.
void WriteOutput(const std::string& path, std::string_view content);

}  // namespace kit

#endif

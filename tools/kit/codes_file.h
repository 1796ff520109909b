// A maker's table of codes, from the file that docs/codes.md describes.
#ifndef KIT_CODES_FILE_H
#define KIT_CODES_FILE_H

#include <string>

#include "kesta/ukey/codes.hpp"

namespace kit {

// Throws FileError for a file that cannot be read or is no such table.
kesta::CodeTable ReadCodes(const std::string& path);

// Puts the file's table in use; of an empty path the system's, where there is one.
void UseCodes(const std::string& path);

}  // namespace kit

#endif

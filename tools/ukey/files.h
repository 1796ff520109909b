// Reading inputs and writing outputs, with errors that name the file.
#ifndef UKEY_FILES_H
#define UKEY_FILES_H

#include <stdexcept>
#include <string>
#include <string_view>

namespace ukey {

struct FileError : std::runtime_error {
    FileError(const std::string& what, int number);
};

// Wrong input or options; the text is shown as it is.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The whole of a file; "-" is standard input. At most 64 MiB.
std::string ReadInput(const std::string& path);

// Writes a file that only its owner can read, replacing it in one step; "-" or an empty path is
// standard output.
void WriteOutput(const std::string& path, std::string_view content);

// Without the line breaks and blanks at its end.
std::string Trimmed(std::string text);

}  // namespace ukey

#endif

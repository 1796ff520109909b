// How a command fails: what it throws, and what is then told.
#ifndef KIT_ERRORS_H
#define KIT_ERRORS_H

#include <optional>
#include <stdexcept>
#include <string>

namespace kit {

// Wrong input or options; the text is shown as it is.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A file that cannot be read or written, or does not hold what it should.
struct FileError : std::runtime_error {
    // number: as in errno; its text stands behind what, unless it is 0.
    FileError(const std::string& what, int number);
};

// Standard output cannot be written: its disk is full.
struct OutputError : FileError {
    using FileError::FileError;
};

// Whoever reads standard output does so no longer.
struct ReaderGone : std::runtime_error {
    ReaderGone() : std::runtime_error("nobody reads the output") {}
};

// A person said no.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// "ukey: message" on standard error, or {"ok":false,"error":{...}} on standard output.
struct Complaint {
    int status = 1;
    std::string message;
    std::string advice;
    std::string operation;  // of the library; empty when no call of it failed
    std::optional<int> code = std::nullopt;
};

// Anything else that ends a command with a status of its own.
struct Failed : std::runtime_error {
    explicit Failed(Complaint what)
        : std::runtime_error(what.message), complaint(std::move(what)) {}
    Complaint complaint;
};

// A kind of outcome: one exit status, stable between versions.
struct Status {
    int number;
    const char* name;   // in --json
    const char* words;  // in --help and the manual page
};

}  // namespace kit

#endif

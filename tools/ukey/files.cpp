#include "files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace ukey {
namespace {

constexpr std::size_t kLargestInput = std::size_t{64} << 20U;

// A descriptor that is closed at the end, unless it is one that the process was given.
class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (number_ > STDERR_FILENO) ::close(number_);
    }
    int number() const { return number_; }

private:
    int number_;
};

void WriteAll(int descriptor, std::string_view content, const std::string& name) {
    while (!content.empty()) {
        const ssize_t written = ::write(descriptor, content.data(), content.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throw FileError(name + " cannot be written", errno);
        content.remove_prefix(static_cast<std::size_t>(written));
    }
}

// Something that is not a plain file, such as /dev/null or a pipe, is written where it is.
bool ReplacedInOneStep(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

void WriteInPlace(const std::string& path, std::string_view content) {
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (file.number() < 0) throw FileError(path + " cannot be written", errno);
    WriteAll(file.number(), content, path);
}

}  // namespace

FileError::FileError(const std::string& what, int number)
    : std::runtime_error(number == 0 ? what : what + ": " + std::strerror(number)) {}

std::string ReadInput(const std::string& path) {
    const bool standard = path == "-";
    const std::string name = standard ? "standard input" : path;
    if (standard && ::isatty(STDIN_FILENO) == 1) {
        std::fputs("ukey: reading standard input; end it with Ctrl-D\n", stderr);
    }
    const Descriptor file(standard ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.number() < 0) throw FileError(name + " cannot be read", errno);
    std::string content;
    char block[65536];
    for (;;) {
        const ssize_t got = ::read(file.number(), block, sizeof block);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw FileError(name + " cannot be read", errno);
        if (got == 0) return content;
        content.append(block, static_cast<std::size_t>(got));
        if (content.size() > kLargestInput) throw FileError(name + " is larger than 64 MiB", 0);
    }
}

void WriteOutput(const std::string& path, std::string_view content) {
    if (path.empty() || path == "-") {
        std::fwrite(content.data(), 1, content.size(), stdout);
        return;
    }
    if (!ReplacedInOneStep(path)) return WriteInPlace(path, content);
    std::string temporary = path + ".XXXXXX";
    const Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (file.number() < 0) throw FileError(path + " cannot be written", errno);
    try {
        WriteAll(file.number(), content, path);
        if (::rename(temporary.c_str(), path.c_str()) != 0) {
            throw FileError(path + " cannot be written", errno);
        }
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
}

std::string Trimmed(std::string text) {
    while (!text.empty() &&
           std::string_view(" \t\r\n").find(text.back()) != std::string_view::npos) {
        text.pop_back();
    }
    return text;
}

}  // namespace ukey

#include "kit/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "kit/language.h"
#include "kit/memory.h"
#include "kit/output.h"
#include "kit/text.h"

namespace kit {
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

FileError CannotRead(const std::string& name, int number) {
    return {Fill(_("{1} cannot be read"), {name}), number};
}

FileError CannotWrite(const std::string& name, int number) {
    return {Fill(_("{1} cannot be written"), {name}), number};
}

void WriteAll(int descriptor, std::string_view content, const std::string& name) {
    while (!content.empty()) {
        const ssize_t written = ::write(descriptor, content.data(), content.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throw CannotWrite(name, errno);
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
    if (file.number() < 0) throw CannotWrite(path, errno);
    WriteAll(file.number(), content, path);
}

}  // namespace

FileError::FileError(const std::string& what, int number)
    : std::runtime_error(number == 0 ? what : Fill(_("{1}: {2}"), {what, SystemText(number)})) {}

std::string ReadInput(const std::string& path) {
    const bool standard = path == "-";
    const std::string name = standard ? _("standard input") : path;
    if (standard && ::isatty(STDIN_FILENO) == 1) {
        TellAside(_("reading standard input; end it with Ctrl-D"));
    }
    const Descriptor file(standard ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.number() < 0) throw CannotRead(name, errno);
    std::string content;
    char block[65536];
    for (;;) {
        const ssize_t got = ::read(file.number(), block, sizeof block);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw CannotRead(name, errno);
        if (got == 0) return content;
        content.append(block, static_cast<std::size_t>(got));
        if (content.size() > kLargestInput)
            throw FileError(Fill(_("{1} is larger than 64 MiB"), {name}), 0);
    }
}

void WriteOutput(const std::string& path, std::string_view content, mode_t mode) {
    if (path.empty() || path == "-") return Put(content);
    RequireMemory();  // before the old file is gone
    if (!ReplacedInOneStep(path)) return WriteInPlace(path, content);
    std::string temporary = path + ".XXXXXX";
    const Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (file.number() < 0) throw CannotWrite(path, errno);
    try {
        WriteAll(file.number(), content, path);
        // On the disk before it takes the name: a power failure leaves the old file or the new one.
        const bool replaced = (mode == kOwnerAlone || ::fchmod(file.number(), mode) == 0) &&
                              ::fsync(file.number()) == 0 &&
                              ::rename(temporary.c_str(), path.c_str()) == 0;
        if (!replaced) throw CannotWrite(path, errno);
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
}

}  // namespace kit

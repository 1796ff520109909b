#include "softkey/store/screen.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "softkey/result.h"
#include "softkey/store/database.h"

namespace softkey {
namespace {

// The screen is a plain file of fixed size, written in one piece: each signature writes it, and
// what a screen shows is worth neither a sync nor a page of the database.
using ScreenImage = std::array<char, kMaxWarningLength>;

std::string ScreenPath(const std::string& home, const std::string& serial) {
    return home + "/screen-" + serial;
}

[[noreturn]] void FailOnFile(const std::string& path) {
    const int error = errno;
    throw Failure(error == ENOSPC || error == EDQUOT ? kStateFull : kStateUnreachable,
                  path + ": " + std::strerror(error));
}

}  // namespace

void Screen::Show(const std::string& serial, const std::string& text) {
    if (text.size() > kMaxWarningLength) throw Failure(kTooLong, "screen: at most 1024 bytes");
    ScreenImage image{};
    std::memcpy(image.data(), text.data(), text.size());
    const std::string path = ScreenPath(store_.home(), serial);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0) FailOnFile(path);
    const ssize_t written = pwrite(file, image.data(), image.size(), 0);
    if (written < 0) {
        const int error = errno;
        close(file);
        errno = error;
        FailOnFile(path);
    }
    close(file);
    if (static_cast<std::size_t>(written) < image.size()) throw Failure(kStateFull, path);
}

std::string Screen::Text(const std::string& serial) {
    ScreenImage image{};
    const std::string path = ScreenPath(store_.home(), serial);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        if (errno == ENOENT) return {};
        FailOnFile(path);
    }
    const ssize_t length = pread(file, image.data(), image.size(), 0);
    close(file);
    if (length <= 0) return {};
    return {image.data(), strnlen(image.data(), static_cast<std::size_t>(length))};
}

void Screen::Forget(const std::string& serial) {
    unlink(ScreenPath(store_.home(), serial).c_str());
}

}  // namespace softkey

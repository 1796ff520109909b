#include "softkey/store/screen.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>

#include "softkey/result.h"
#include "softkey/store/file.h"

namespace softkey {
namespace {

// The screen is a plain file of fixed size, written in one piece: each signature writes it, and
// what a screen shows is worth neither a sync nor a page of the database.
using ScreenImage = std::array<char, kMaxWarningLength>;

std::string ScreenPath(const std::string& home, const std::string& serial) {
    return home + "/screen-" + serial;
}

// The screen that was written last stays open: a client signs with one key again and again. One
// that was taken away meanwhile has no name any more.
std::shared_ptr<const File> OpenScreen(const std::string& path) {
    struct Last {
        std::mutex mutex;
        std::string path;
        std::shared_ptr<const File> file;
    };
    static Last* const last = new Last;
    const std::lock_guard<std::mutex> lock(last->mutex);
    if (last->path != path || last->file->Status().st_nlink == 0) {
        const auto opened = std::make_shared<File>(path, O_WRONLY | O_CREAT);
        opened->Required();
        last->file = opened;
        last->path = path;
    }
    return last->file;
}

}  // namespace

void Screen::Show(const std::string& serial, const std::string& text) {
    if (text.size() > kMaxWarningLength) throw Failure(kTooLong, "screen: at most 1024 bytes");
    ScreenImage image{};
    std::memcpy(image.data(), text.data(), text.size());
    OpenScreen(ScreenPath(store_.home(), serial))->WriteAt(0, image.data(), image.size());
}

std::string Screen::Text(const std::string& serial) {
    ScreenImage image{};
    const std::string path = ScreenPath(store_.home(), serial);
    const File file(path, O_RDONLY);
    if (!file.IsOpen() && errno == ENOENT) return {};
    const std::size_t length = file.Required().ReadAt(0, image.data(), image.size());
    return {image.data(), strnlen(image.data(), length)};
}

void Screen::Forget(const std::string& serial) {
    unlink(ScreenPath(store_.home(), serial).c_str());
}

}  // namespace softkey

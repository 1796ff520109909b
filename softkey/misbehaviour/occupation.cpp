#include "softkey/misbehaviour/occupation.h"

#include <fcntl.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "softkey/store/file.h"

namespace softkey {
namespace {

std::string OwnerPath(const std::string& home) {
    return home + "/misbehaviour.owner";
}

// Whether the file that is open is still the one at its path.
bool StillThere(const File& file, const std::string& path) {
    struct stat there {};
    const struct stat opened = file.Status();
    return stat(path.c_str(), &there) == 0 && there.st_dev == opened.st_dev &&
           there.st_ino == opened.st_ino;
}

// Stays open, and with it the locks, until the process ends.
const File& Opened(const std::string& home) {
    static auto* const files = new std::map<std::string, std::unique_ptr<File>>;
    std::unique_ptr<File>& file = (*files)[home];
    if (!file || !StillThere(*file, OwnerPath(home))) {
        auto opened = std::make_unique<File>(OwnerPath(home), O_RDWR | O_CREAT);
        opened->Required();
        file = std::move(opened);
    }
    return *file;
}

}  // namespace

bool OccupyKey(const std::string& home, const std::string& serial) {
    static auto* const mutex = new std::mutex;
    const std::lock_guard<std::mutex> lock(*mutex);
    return Opened(home).TryLock(static_cast<off_t>(std::hash<std::string>()(serial) >> 2));
}

}  // namespace softkey

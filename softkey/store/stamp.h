// Whether a file is still as it was: one look at what the system keeps about it.
#ifndef SOFTKEY_STORE_STAMP_H
#define SOFTKEY_STORE_STAMP_H

#include <sys/stat.h>

#include <cstddef>

namespace softkey {

class Stamp {
public:
    // Of a file that is about to be read. A file that was changed a moment ago may change again
    // without a trace, since the system's clock for files moves in steps: its stamp never holds.
    void Take(const struct stat& status);
    // Of a file that was just written, and whose time of change was set to this, which no clock of
    // the system's will show.
    void Expect(std::size_t size, const struct timespec& changed);

    // path is seen from an open folder, or from AT_FDCWD.
    bool Holds(int folder, const char* path);
    bool Holds(const struct stat& now);

private:
    struct stat seen_ {};
    enum class Kind { kNever, kTaken, kExpected } kind_ = Kind::kNever;
};

}  // namespace softkey

#endif

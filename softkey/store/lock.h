// A lock that processes and threads take in turns: one byte of a file, mostly the guard.
#ifndef SOFTKEY_STORE_LOCK_H
#define SOFTKEY_STORE_LOCK_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "softkey/store/file.h"

namespace softkey {

// Only who makes a state makes its guard: one that is missing must be missed.
enum class GuardFile { kThere, kMadeWhenMissing };

class Lock {
public:
    // Waits for its turn. kStateBusy when nothing moved for five seconds: whoever holds the lock
    // was stopped. A queue that moves is waited for up to a minute.
    Lock(const std::string& home, off_t place, GuardFile guard = GuardFile::kThere);
    // The same by an opening of a file that nobody else uses for this place meanwhile. Whoever has
    // the lock changes the beginning of that file.
    Lock(const std::string& home, off_t place, std::shared_ptr<const File> file);
    ~Lock() { file_->Unlock(place_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    static constexpr off_t kWriting = 0;
    // One PIN at a time is verified on each key.
    static off_t OfPin(std::uint32_t slot) { return (off_t{1} << 32) + slot; }

    const File& file() const { return *file_; }  // open for writing

    // How long whoever has waited so long rests before it asks again: who waits longer asks more
    // often, so that nobody is overtaken for long.
    static std::chrono::microseconds Pause(std::chrono::milliseconds waited);

private:
    void Wait(const std::string& home) const;

    std::shared_ptr<const File> file_;
    off_t place_;
};

}  // namespace softkey

#endif

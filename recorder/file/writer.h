// Appends records to a recording that many threads and processes write at once. Built to be of no
// harm to the program that it runs in: no exceptions, no allocation, no system call but when the
// file must grow, and silence once it cannot.
#ifndef KESTA_RECORDER_WRITER_H
#define KESTA_RECORDER_WRITER_H

#include "layout.h"

namespace kesta {
namespace recorder {

class Writer {
public:
    // Writes the head of a new recording. The file must be empty.
    static bool Create(int descriptor);

    // False where the file is no recording or cannot be mapped; the writer then loses everything.
    bool Open(const char* path);
    bool IsOpen() const { return base_ != nullptr; }

    // False when the record was lost.
    bool append(const unsigned char* content, std::size_t length);

    std::uint64_t NextCall() { return Next(&State::calls); }
    std::uint64_t NextProcess() { return Next(&State::processes); }

private:
    State& state() const { return *reinterpret_cast<State*>(base_ + sizeof kMagic); }
    std::uint64_t Next(std::uint64_t State::*counter) {
        return __atomic_add_fetch(&(state().*counter), 1, __ATOMIC_RELAXED);
    }
    bool Reserve(std::size_t size, std::uint64_t& at);
    bool Grow(std::uint64_t end);

    unsigned char* base_ = nullptr;
    std::uint64_t window_ = 0;
    char path_[4096] = "";
};

}  // namespace recorder
}  // namespace kesta

#endif

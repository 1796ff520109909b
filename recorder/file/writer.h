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
    static bool create(int descriptor);

    // False where the file is no recording or cannot be mapped; the writer then loses everything.
    bool open(const char* path);
    bool isOpen() const { return m_base != nullptr; }

    // False when the record was lost.
    bool append(const unsigned char* content, std::size_t length);

    std::uint64_t nextCall() { return next(&State::calls); }
    std::uint64_t nextProcess() { return next(&State::processes); }

private:
    State& state() const { return *reinterpret_cast<State*>(m_base + sizeof kMagic); }
    std::uint64_t next(std::uint64_t State::*counter) {
        return __atomic_add_fetch(&(state().*counter), 1, __ATOMIC_RELAXED);
    }
    bool reserve(std::size_t size, std::uint64_t& at);
    bool grow(std::uint64_t end);

    unsigned char* m_base = nullptr;
    std::uint64_t m_window = 0;
    char m_path[4096] = "";
};

}  // namespace recorder
}  // namespace kesta

#endif

// An open file of the state folder. What the system refuses becomes a Failure that names the file.
#ifndef SOFTKEY_STORE_FILE_H
#define SOFTKEY_STORE_FILE_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

#include "softkey/bytes.h"
#include "softkey/result.h"

namespace softkey {

// What errno says about this file: kStateFull or kStateUnreachable.
[[noreturn]] void FailOnFile(const std::string& path);
bool IsFull(int error);  // whether it says that there is no room

class File {
public:
    static constexpr off_t kLargest = 64 << 20;

    // Files that are made are for their owner alone.
    File(std::string path, int flags);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsOpen() const { return descriptor_ != -1; }
    int Descriptor() const { return descriptor_; }
    const File& Required() const;  // fails unless it is open

    // kStateDamaged when there is more than so much: it must not take all memory.
    Bytes ReadAll(off_t most = kLargest) const { return ReadAll(Status(), most); }
    Bytes ReadAll(const struct stat& status, off_t most = kLargest) const;
    // As many bytes as there are, up to size.
    std::size_t ReadAt(off_t offset, void* bytes, std::size_t size) const;
    // The same in one call of the system, which may bring less.
    std::size_t ReadSome(off_t offset, void* bytes, std::size_t size) const;
    void WriteAt(off_t offset, const void* bytes, std::size_t size) const;
    void Clear() const;
    void Sync() const;
    struct stat Status() const;
    // Sets the times of its last change and look, so that any change after this one is told from
    // it.
    void SetChanged(const struct timespec& when) const;

    // Locks one byte of the file for this opening of it. False when it stays taken for so long.
    bool TryLock(off_t offset) const;
    void Unlock(off_t offset) const;

private:
    std::string path_;
    int descriptor_;
};

}  // namespace softkey

#endif

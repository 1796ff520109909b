#include "writer.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "descriptor.h"

namespace kesta {
namespace recorder {
namespace {

// The file grows by this much; records beyond the window are lost.
constexpr std::uint64_t kStep = std::uint64_t{1} << 18;
constexpr std::uint64_t kWindow = std::uint64_t{1} << 30;
constexpr std::uint64_t kLeastWindow = std::uint64_t{1} << 24;

int OpenFile(const char* path) {
    return ::open(path, O_RDWR | O_CLOEXEC);
}

// What is called here may be a point of cancellation; a record is not.
class NoCancellation {
public:
    NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~NoCancellation() { pthread_setcancelstate(before_, nullptr); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;

private:
    int before_ = 0;
    const int error_ = errno;

public:
    void RestoreErrno() const { errno = error_; }
};

// Room that is really there: a hole in the file would end a client by SIGBUS on a full disk.
bool Fill(int descriptor, std::uint64_t from, std::uint64_t to) {
    // Beyond this limit the kernel would send a signal that ends the client.
    rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < to) {
        errno = EFBIG;
        return false;
    }
    const auto at = static_cast<off_t>(from), size = static_cast<off_t>(to - from);
    if (fallocate(descriptor, 0, at, size) == 0) return true;
    if (errno != EOPNOTSUPP && errno != ENOSYS) return false;
    constexpr std::size_t kPart = 65536;
    static const unsigned char zeros[kPart] = {};
    while (from < to) {
        const std::size_t part = to - from < kPart ? static_cast<std::size_t>(to - from) : kPart;
        const ssize_t written = pwrite(descriptor, zeros, part, static_cast<off_t>(from));
        if (written <= 0) return false;
        from += static_cast<std::uint64_t>(written);
    }
    return true;
}

}  // namespace

bool Writer::Create(int descriptor) {
    unsigned char head[kHeadSize] = {};
    std::memcpy(head, kMagic, sizeof kMagic);
    State state = {};
    state.used = kHeadSize;
    state.allocated = kStep;
    std::memcpy(head + sizeof kMagic, &state, sizeof state);
    return Fill(descriptor, 0, kStep) &&
           pwrite(descriptor, head, sizeof head, 0) == static_cast<ssize_t>(sizeof head);
}

bool Writer::Open(const char* path) {
    const std::size_t length = std::strlen(path);
    if (length >= sizeof path_) return false;
    const Descriptor file(OpenFile(path));
    struct stat status;
    unsigned char magic[sizeof kMagic];
    if (file.number() < 0 || fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode) ||
        pread(file.number(), magic, sizeof magic, 0) != static_cast<ssize_t>(sizeof magic) ||
        std::memcmp(magic, kMagic, sizeof magic) != 0) {
        return false;
    }
    // Mapped beyond its end: what was not allocated is not touched. A process whose address space
    // is limited gets a smaller window.
    for (window_ = kWindow; window_ >= kLeastWindow; window_ /= 4) {
        void* const base = mmap(nullptr, window_, PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_NORESERVE, file.number(), 0);
        if (base == MAP_FAILED) continue;
        std::memcpy(path_, path, length + 1);
        base_ = static_cast<unsigned char*>(base);
        return true;
    }
    return false;
}

// One process at a time lets the file grow. The lock is the kernel's, so that it ends with whoever
// is killed while holding it.
bool Writer::Grow(std::uint64_t end) {
    const NoCancellation held;
    const Descriptor file(OpenFile(path_));
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    bool grown = false;
    if (file.number() >= 0 && fcntl(file.number(), F_OFD_SETLKW, &whole) == 0) {
        const std::uint64_t from = __atomic_load_n(&state().allocated, __ATOMIC_ACQUIRE);
        const std::uint64_t to = (end + kStep - 1) / kStep * kStep;
        grown = from >= end;
        if (!grown && Fill(file.number(), from, to)) {
            __atomic_store_n(&state().allocated, to, __ATOMIC_RELEASE);
            grown = true;
        }
    }
    held.RestoreErrno();
    return grown;
}

bool Writer::Reserve(std::size_t size, std::uint64_t& at) {
    at = __atomic_load_n(&state().used, __ATOMIC_RELAXED);
    for (;;) {
        const std::uint64_t end = at + size;
        if (end > window_) return false;
        if (end > __atomic_load_n(&state().allocated, __ATOMIC_ACQUIRE) && !Grow(end)) return false;
        if (__atomic_compare_exchange_n(&state().used, &at, end, true, __ATOMIC_ACQ_REL,
                                        __ATOMIC_RELAXED)) {
            return true;
        }
    }
}

bool Writer::append(const unsigned char* content, std::size_t length) {
    if (base_ == nullptr || length < 2) return false;
    std::uint64_t at = 0;
    // Once a record was lost all that follow are: a gap would pass for a call that never was.
    if (length > UINT32_MAX || __atomic_load_n(&state().lost, __ATOMIC_RELAXED) != 0 ||
        !Reserve(Framed(length), at)) {
        __atomic_add_fetch(&state().lost, 1, __ATOMIC_RELAXED);
        return false;
    }
    unsigned char* const place = base_ + at;
    auto* const word = reinterpret_cast<std::uint64_t*>(place);
    __atomic_store_n(word, FirstWord(length, kUnfinished, nullptr), __ATOMIC_RELEASE);
    std::memcpy(place + sizeof *word, content + 2, length - 2);
    __atomic_store_n(word, FirstWord(length, kWhole, content), __ATOMIC_RELEASE);
    return true;
}

}  // namespace recorder
}  // namespace kesta

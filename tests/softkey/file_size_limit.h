// While it lives, no file of this process may grow beyond a size.
#ifndef KESTA_SOFTKEY_FILE_SIZE_LIMIT_H
#define KESTA_SOFTKEY_FILE_SIZE_LIMIT_H

#include <sys/resource.h>

#include <csignal>

class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const struct rlimit now { bytes, before_.rlim_max };
        setrlimit(RLIMIT_FSIZE, &now);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    struct rlimit before_ {};
};

#endif

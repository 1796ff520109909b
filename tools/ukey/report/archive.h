// A zip archive in memory.
#ifndef UKEY_REPORT_ARCHIVE_H
#define UKEY_REPORT_ARCHIVE_H

#include <ctime>
#include <string>
#include <vector>

namespace ukey {

struct Member {
    std::string name;
    std::string bytes;
    const char* what;  // for a person
};

// Members in their order, below one folder. Its owner alone may read what is unpacked. Throws
// FileError where there is no memory for it.
std::string Zip(const std::string& folder, const std::vector<Member>& members, std::time_t time);

}  // namespace ukey

#endif

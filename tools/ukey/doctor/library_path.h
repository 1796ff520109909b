// Where the system looks for a shared library: environment, the library's own path, the configured
// and the built-in folders. Reads configuration, loads nothing.
#ifndef UKEY_DOCTOR_LIBRARY_PATH_H
#define UKEY_DOCTOR_LIBRARY_PATH_H

#include <string>
#include <vector>

namespace ukey {

class LibraryPath {
public:
    // root stands in front of every path that is looked at; empty for the machine itself. The
    // environment counts for the machine alone.
    explicit LibraryPath(std::string root);

    // The file that would be loaded for a name, with the root in front; empty when there is none.
    // runpath and origin are those of the library that asks.
    std::string Find(const std::string& name, const std::string& runpath,
                     const std::string& origin) const;
    // The folders in the order in which they are looked at, without the root.
    std::vector<std::string> Folders(const std::string& runpath, const std::string& origin) const;

private:
    void ReadConfiguration(const std::string& file, int depth);

    std::string root_;
    std::vector<std::string> environment_;
    std::vector<std::string> configured_;
};

}  // namespace ukey

#endif

// What is installed: the system, the libraries, the packages.
#ifndef UKEY_REPORT_VERSIONS_H
#define UKEY_REPORT_VERSIONS_H

#include <string>
#include <vector>

#include "doctor/finding.h"

namespace ukey {

struct InstalledLibrary {
    LibraryFile file;
    std::uint64_t size = 0;
    std::string hash;     // SHA-256, hexadecimal
    std::string version;  // where it tells one
    std::string package;
};

struct Package {
    std::string name;
    std::string version;
    std::string architecture;
    std::string state;  // "installed"
};

struct Versions {
    Rows system;  // name and value, for a person
    std::vector<InstalledLibrary> libraries;
    std::vector<Package> packages;  // empty where there is no dpkg
};

Versions ReadVersions(const Report& report);

}  // namespace ukey

#endif

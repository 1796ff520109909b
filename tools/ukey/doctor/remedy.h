// What doctor tells people to type, and whom it names.
#ifndef UKEY_DOCTOR_REMEDY_H
#define UKEY_DOCTOR_REMEDY_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace ukey {

// The command as this user must type it for the superuser's rights.
std::string AsRoot(const std::string& command);
// The paths behind each other, each as one word of a shell.
std::string Words(const std::vector<std::string>& paths);

// For a person: "one, two".
std::string Listed(const std::vector<std::string>& names);

// The Debian package of the system below root that brings a file; empty when none says so. A path
// that does not begin with "/" is the name of a library, in any folder.
std::string PackageOf(const std::string& root, const std::string& path);
// How to bring a file back that is missing or damaged: the package again where it is there,
// otherwise what to install.
std::string BringBack(const std::string& root, const std::string& path,
                      const std::string& otherwise);

// "root", "user 1234". In a user namespace an owner from outside has no name and no number.
std::string OwnerName(uid_t owner);
bool OutsideOfNamespace(uid_t owner);

}  // namespace ukey

#endif

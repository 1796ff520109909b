// What doctor looks at. Each check adds its findings, causes before consequences.
#ifndef UKEY_DOCTOR_CHECKS_H
#define UKEY_DOCTOR_CHECKS_H

#include <string>

#include "doctor/finding.h"
#include "doctor/library_path.h"
#include "kesta/places.h"

namespace ukey {

constexpr const char* kNameOne = N_("pull out all but one, or name one: ukey doctor --serial SN");

// The folder that a path stands in.
inline std::string FolderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

// The install directory: there, open, and nobody else's to change. Knows the software key.
void CheckInstallDirectory(Report& report);
// The maker's two libraries in it.
void CheckMakersLibraries(Report& report, const LibraryPath& path);
// The client library: where it is looked for, and whether it can be loaded.
void CheckClientLibrary(Report& report, const LibraryPath& path, const std::string& given);
// named: a serial number was given.
void CheckUsbDevice(Report& report, bool named);
// The other files of the install directory.
void CheckCompanions(Report& report);
void CheckLog(Report& report);

// How the key is asked.
struct KeyQuestion {
    std::string libraryFile;  // empty: the usual one
    std::string serial;       // empty: the key that is present
    int seconds = 20;
    bool version = false;  // ask the client library for its version as well
};
// Asks the token library for the key, its PIN tries and its certificates, in a process of its own.
void CheckKey(Report& report, const KeyQuestion& question);

// All of it, ranked. noKey: nothing is loaded.
void Examine(Report& report, const KeyQuestion& question, bool noKey);

}  // namespace ukey

#endif

// What doctor looks at. Each check adds its findings, causes before consequences.
#ifndef UKEY_DOCTOR_CHECKS_H
#define UKEY_DOCTOR_CHECKS_H

#include <string>

#include "doctor/finding.h"
#include "doctor/library_path.h"
#include "kesta/places.h"

namespace ukey {

// The client library: where it is looked for, and whether it can be loaded.
void CheckClientLibrary(Report& report, const LibraryPath& path, const std::string& given);
// The maker's two libraries in the install directory.
void CheckMakersLibraries(Report& report, const LibraryPath& path);
// The other files of the install directory.
void CheckCompanions(Report& report);
void CheckLog(Report& report);
void CheckUsbDevice(Report& report);
// Asks the token library for a key, in a process of its own.
void CheckKey(Report& report, const std::string& libraryFile, int seconds);

}  // namespace ukey

#endif

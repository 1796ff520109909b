// All checks, in the order in which causes come before consequences.
#include "doctor/checks.h"

namespace ukey {

void Examine(Report& report, const KeyQuestion& question, bool noKey) {
    const LibraryPath path(report.root);
    CheckInstallDirectory(report);
    CheckMakersLibraries(report, path);
    CheckClientLibrary(report, path, question.libraryFile);
    // A library that does not pass is not loaded, nor one that anybody may have put there; and a
    // folder is no running system.
    const bool loadable = report.Count(Severity::kProblem) == 0;
    if (!report.softwareKey) CheckUsbDevice(report, !question.serial.empty());
    if (loadable && report.root.empty() && !noKey) CheckKey(report, question);
    if (report.installed && !report.softwareKey) CheckCompanions(report);
    CheckLog(report);
    report.Rank();
}

}  // namespace ukey

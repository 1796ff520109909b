// The install directory: there, open to everybody, and changed by nobody but the superuser.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>

#include "doctor/checks.h"
#include "doctor/remedy.h"
#include "kit/language.h"

namespace ukey {
namespace {

namespace places = kesta::places;
using Paths = std::vector<std::string>;

constexpr const char* kSubject = N_("install directory");

// The folders on the way, with the root in front: /opt, /opt/apps and so on.
Paths WayTo(const Report& report) {
    const std::string folder = places::kInstallDirectory;
    Paths way;
    for (std::size_t end = folder.find('/', 1); end != std::string::npos;
         end = folder.find('/', end + 1)) {
        way.push_back(report.root + folder.substr(0, end));
    }
    way.push_back(report.root + folder);
    return way;
}

// The folders from the one that keeps users out to the install directory.
std::string Opening(const Paths& way, std::size_t closed) {
    return AsRoot("chmod a+rx " +
                  Words(Paths(way.begin() + static_cast<std::ptrdiff_t>(closed), way.end())));
}

// True when this user gets in.
bool Enter(Report& report, const Paths& way) {
    for (std::size_t i = 0; i < way.size(); ++i) {
        struct stat status {};
        if (::stat(way[i].c_str(), &status) != 0 && errno != EACCES) {
            report.Problem("install-directory", _(kSubject),
                           Fill(_("{1}: {2}"), {way[i], SystemText(errno)}),
                           BringBack(report.root, places::kInstallDirectory,
                                     Fill(_("install the maker's package; it brings {1}"),
                                          {places::kInstallDirectory})));
            return false;
        }
        if (!S_ISDIR(status.st_mode)) {
            report.Problem("install-directory", _(kSubject), Fill(_("{1} is no folder"), {way[i]}),
                           Fill(_("move it away: {1}; then install the maker's package"),
                                {AsRoot("mv " + Words({way[i], way[i] + ".aside"}))}));
            return false;
        }
        const bool last = i + 1 == way.size();
        if (::access(way[i].c_str(), last ? R_OK | X_OK : X_OK) != 0) {
            report.Problem("install-directory", _(kSubject),
                           Fill(_("{1} is closed to this user: {2}"), {way[i], SystemText(errno)}),
                           Fill(_("open it: {1}"), {Opening(way, i)}));
            return false;
        }
        // The superuser gets in everywhere.
        const mode_t wanted = last ? S_IROTH | S_IXOTH : S_IXOTH;
        if (::geteuid() == 0 && !report.softwareKey && (status.st_mode & wanted) != wanted) {
            report.Warn("install-directory", _(kSubject),
                        Fill(_("{1} is closed to ordinary users"), {way[i]}),
                        Fill(_("open it: {1}"), {Opening(way, i)}));
            return true;
        }
    }
    report.Fine("install-directory", _(kSubject), way.back());
    return true;
}

// Whoever may write there decides what runs in every client.
void CheckWriters(Report& report, const Paths& way) {
    Paths open;
    Paths foreign;
    Paths grouped;
    for (std::size_t i = 0; i < way.size() + 2; ++i) {
        const std::string path = i < way.size()    ? way[i]
                                 : i == way.size() ? report.root + places::kTokenLibrary
                                                   : report.root + places::kEventLibrary;
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0) continue;
        const bool inside = i + 1 >= way.size();
        const bool sticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
        if ((status.st_mode & S_IWOTH) != 0 && (inside || !sticky)) open.push_back(path);
        // Of another system the numbers of users say nothing here.
        if (!report.root.empty() || report.softwareKey || OutsideOfNamespace(status.st_uid))
            continue;
        if (status.st_uid != 0) foreign.push_back(path);
        if ((status.st_mode & S_IWGRP) != 0 && status.st_gid != 0) grouped.push_back(path);
    }
    if (!open.empty()) {
        report.Problem("install-directory.writable", _(kSubject),
                       Fill(_("everybody may change what clients run: {1}"), {Listed(open)}),
                       Fill(_("{1}; then install the maker's package again, since what lies there "
                              "may have been changed"),
                            {AsRoot("chmod o-w " + Words(open))}));
    }
    if (!foreign.empty()) {
        report.Warn("install-directory.owner", _(kSubject),
                    Fill(_("not the superuser's, whose owner may change what clients run: {1}"),
                         {Listed(foreign)}),
                    AsRoot("chown root: " + Words(foreign)));
    }
    if (!grouped.empty()) {
        report.Warn("install-directory.group", _(kSubject),
                    Fill(_("a group may change what clients run: {1}"), {Listed(grouped)}),
                    AsRoot("chmod g-w " + Words(grouped)));
    }
}

// The software key is known by the setting that it reads.
bool IsSoftwareKey(const std::string& library) {
    struct stat status {};
    if (::stat(library.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    std::ifstream file(library, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return bytes.find("KESTA_SOFTKEY_HOME") != std::string::npos;
}

}  // namespace

void CheckInstallDirectory(Report& report) {
    const Paths way = WayTo(report);
    report.softwareKey = IsSoftwareKey(report.root + places::kTokenLibrary);
    report.installed = Enter(report, way);
    if (!report.installed) return;
    if (report.softwareKey) {
        report.Fine(
            "software-key", _("software key"),
            _("it stands in for the maker's libraries; USB and companion files do not matter"));
    }
    CheckWriters(report, way);
}

}  // namespace ukey

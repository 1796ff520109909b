// The companion files of the install directory.
#include <dirent.h>

#include <iterator>
#include <memory>
#include <set>

#include "doctor/checks.h"
#include "doctor/remedy.h"

namespace ukey {
namespace {

namespace places = kesta::places;

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

std::set<std::string> EntriesOf(const std::string& path) {
    std::set<std::string> names;
    const std::unique_ptr<DIR, CloseFolder> folder(::opendir(path.c_str()));
    if (!folder) return names;
    while (const dirent* entry = ::readdir(folder.get())) names.insert(entry->d_name);
    return names;
}

// Libraries stand in the maker's list without their suffix.
bool Holds(const std::set<std::string>& entries, const std::string& name) {
    if (entries.count(name) != 0) return true;
    const std::string library = name + ".so";
    const auto found = entries.lower_bound(library);
    if (found == entries.end()) return false;
    return *found == library || found->compare(0, library.size() + 1, library + ".") == 0;
}

}  // namespace

void CheckCompanions(Report& report) {
    const auto entries = EntriesOf(report.root + places::kInstallDirectory);
    std::string missing;
    for (const char* const name : places::kCompanionFiles) {
        if (!Holds(entries, name)) missing += (missing.empty() ? "" : ", ") + std::string(name);
    }
    if (missing.empty()) {
        report.Fine("companions", _("companion files"),
                    Fill(_("all {1} are in the install directory"),
                         {std::to_string(std::size(places::kCompanionFiles))}));
        return;
    }
    report.Warn("companions", _("companion files"),
                Fill(_("not in the install directory: {1}"), {missing}),
                BringBack(report.root, places::kTokenLibrary,
                          _("install the maker's package again; the library itself needs "
                            "libR7Token_KESTA")));
}

}  // namespace ukey

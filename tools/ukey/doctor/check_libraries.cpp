// The client library and the maker's two: present, readable, of this machine, complete, loadable.
#include <unistd.h>

#include <deque>
#include <map>
#include <set>

#include "doctor/checks.h"
#include "doctor/elf_file.h"
#include "doctor/remedy.h"
#include "kesta/event_library.h"
#include "kesta/token_library.h"
#include "kesta/ukey.hpp"
#include "kit/language.h"

namespace ukey {
namespace {

namespace places = kesta::places;
using Names = std::vector<std::string>;

#define UKEY_NAME(result, name, arguments) #name,

const Names& TokenEntryPoints() {
    static const Names names = {KESTA_TOKEN_ENTRY_POINTS(UKEY_NAME)};
    return names;
}

const Names& EventEntryPoints() {
    static const Names names = {KESTA_EVENT_ENTRY_POINTS(UKEY_NAME)};
    return names;
}

#undef UKEY_NAME

struct Suspect {
    std::string id;      // in front of its findings' ids
    const char* name;    // for a person, to be translated
    std::string path;    // without the root
    std::string remedy;  // for a file that is missing or of no use
};

std::string Faulty(const ElfFile& file, const std::string& path) {
    return Fill(_(("{1} " + file.fault).c_str()), {path});
}

// Reads the file and reports what makes it useless. True when it is worth looking further.
bool Usable(Report& report, const Suspect& suspect, ElfFile& file) {
    const std::string path = report.root + suspect.path;
    if (::access(path.c_str(), F_OK) != 0) {
        report.Problem(suspect.id + ".present", _(suspect.name),
                       Fill(_("{1}: {2}"), {path, SystemText(errno)}), suspect.remedy);
        return false;
    }
    report.libraries.push_back({suspect.id, suspect.name, path});
    if (::access(path.c_str(), R_OK) != 0) {
        report.Problem(
            suspect.id + ".readable", _(suspect.name), Fill(_("{1} cannot be read"), {path}),
            Fill(_("make it readable for all: {1}"), {AsRoot("chmod a+r " + Words({path}))}));
        return false;
    }
    file = ReadElf(path);
    if (!file.fault.empty()) {
        report.Problem(suspect.id + ".readable", _(suspect.name), Faulty(file, path),
                       suspect.remedy);
        return false;
    }
    if (!file.sixtyFourBit || file.machine != OwnMachine()) {
        report.Problem(suspect.id + ".machine", _(suspect.name),
                       Fill(_("{1} is for {2}, programs here are for {3}"),
                            {path, MachineName(file.machine), MachineName(OwnMachine())}),
                       Fill(_("install the package for {1}"), {MachineName(OwnMachine())}));
        return false;
    }
    return true;
}

// Finds libraries once and remembers what they say.
class Closure {
public:
    Closure(const LibraryPath& path, std::string root) : path_(path), root_(std::move(root)) {}

    struct Gaps {
        Names names;                     // "libfoo.so.1"
        Names missing;                   // "libfoo.so.1 (for /usr/lib/libbar.so)"
        std::set<std::string> versions;  // "GLIBC_2.40 of libc.so.6"

        void Add(const std::string& name, const std::string& words) {
            names.push_back(name);
            missing.push_back(words);
        }
    };

    Gaps Of(const ElfFile& file, const std::string& path) {
        std::deque<Asker> open = {{file, path}};
        std::set<std::string> seen;
        Gaps gaps;
        while (!open.empty()) {
            const Asker asker = std::move(open.front());
            open.pop_front();
            std::map<std::string, ElfFile> providers;
            for (const std::string& name : asker.file.needed) {
                const std::string found = Find(name, asker);
                if (found.empty()) {
                    if (seen.insert(name).second) gaps.Add(name, Blame(name, asker, path));
                    continue;
                }
                const ElfFile& provider = providers[name] = ReadElf(root_ + found);
                if (!seen.insert(name).second) continue;
                if (provider.fault.empty()) {
                    open.push_back({provider, found});
                } else {
                    const std::string blamed = Fill(_("{1}, which"), {Blame(name, asker, path)});
                    gaps.Add(name, Faulty(provider, blamed));
                }
            }
            AddVersions(asker.file, providers, gaps);
        }
        return gaps;
    }

private:
    struct Asker {
        ElfFile file;
        std::string path;  // without the root
    };

    std::string Find(const std::string& name, const Asker& asker) const {
        const std::string found = path_.Find(name, asker.file.runpath, FolderOf(asker.path));
        return found.empty() ? found : found.substr(root_.size());
    }

    static std::string Blame(const std::string& name, const Asker& asker, const std::string& path) {
        return asker.path == path ? name : Fill(_("{1} (for {2})"), {name, asker.path});
    }

    static void AddVersions(const ElfFile& file, const std::map<std::string, ElfFile>& providers,
                            Gaps& gaps) {
        for (const auto& need : file.versionNeeds) {
            const auto provider = providers.find(need.library);
            if (provider == providers.end() || !provider->second.fault.empty()) continue;
            if (provider->second.versions.count(need.version) == 0) {
                gaps.versions.insert(Fill(_("{1} of {2}"), {need.version, need.library}));
            }
        }
    }

    const LibraryPath& path_;
    const std::string root_;
};

// Packages that are installed have lost a file; what no package lists has to be looked for.
std::string RemedyFor(const std::string& root, const Names& missing) {
    Names packages;
    Names unknown;
    for (const std::string& name : missing) {
        if (name == KESTA_EVENT_LIBRARY) continue;
        const std::string package = PackageOf(root, name);
        (package.empty() ? unknown : packages).push_back(package.empty() ? name : package);
    }
    if (packages.empty() && unknown.empty()) {
        return _("it is the maker's; see what is said of the event library");
    }
    std::string text;
    if (!packages.empty()) {
        text = Fill(_("install again: {1}"),
                    {AsRoot("apt-get install --reinstall " + Words(packages))});
    }
    for (const std::string& name : unknown) {
        text += (text.empty() ? "" : "; ") +
                Fill(_("install the package that `apt-file search {1}` names"), {name});
    }
    return text;
}

void CheckDependencies(Report& report, const LibraryPath& path, const Suspect& suspect,
                       const ElfFile& file) {
    const auto gaps = Closure(path, report.root).Of(file, suspect.path);
    if (!gaps.missing.empty()) {
        report.Problem(
            suspect.id + ".dependencies", _(suspect.name),
            Fill(_("needs libraries that are missing or damaged: {1}"), {Listed(gaps.missing)}),
            RemedyFor(report.root, gaps.names));
    }
    if (!gaps.versions.empty()) {
        report.Problem(suspect.id + ".versions", _(suspect.name),
                       Fill(_("needs newer libraries than are there: {1}"),
                            {Listed(Names(gaps.versions.begin(), gaps.versions.end()))}),
                       _("use a newer system, or a package that was built for this one"));
    }
    if (gaps.missing.empty() && gaps.versions.empty()) {
        report.Fine(suspect.id + ".dependencies", _(suspect.name),
                    _("all libraries that it needs are there"));
    }
}

void CheckEntryPoints(Report& report, const Suspect& suspect, const ElfFile& file,
                      const Names& wanted) {
    Names missing;
    for (const std::string& name : wanted) {
        const bool found = file.symbols.count(name) != 0;
        if (!found) missing.push_back(name);
        report.entryPoints.push_back(
            {suspect.path.substr(suspect.path.rfind('/') + 1), name, found});
    }
    const std::string all = std::to_string(wanted.size());
    if (missing.empty()) {
        report.Fine(suspect.id + ".entry-points", _(suspect.name),
                    Fill(_("all {1} entry points found"), {all}));
    } else {
        report.Problem(suspect.id + ".entry-points", _(suspect.name),
                       Fill(_("{1} of {2} entry points missing: {3}"),
                            {std::to_string(missing.size()), all, Listed(missing)}),
                       _("install a version of the maker's package that has them"));
    }
}

void CheckMakersLibrary(Report& report, const LibraryPath& path, const Suspect& suspect,
                        const Names& entryPoints) {
    report.paths.push_back(report.root + suspect.path);
    ElfFile file;
    if (!Usable(report, suspect, file)) {
        for (const std::string& name : entryPoints) {
            report.entryPoints.push_back(
                {suspect.path.substr(suspect.path.rfind('/') + 1), name, false});
        }
        return;
    }
    report.Fine(suspect.id + ".present", _(suspect.name),
                Fill(_("{1}, {2}"), {report.root + suspect.path, MachineName(file.machine)}));
    CheckEntryPoints(report, suspect, file, entryPoints);
    CheckDependencies(report, path, suspect, file);
}

std::string OwnRunpath() {
    return ReadElf("/proc/self/exe").runpath;
}

std::string OwnFolder() {
    char path[4096];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    return length > 0 ? FolderOf(std::string(path, static_cast<std::size_t>(length))) : "/usr/bin";
}

std::string Without(const std::string& root, const std::string& path) {
    return path.compare(0, root.size(), root) == 0 ? path.substr(root.size()) : path;
}

}  // namespace

void CheckClientLibrary(Report& report, const LibraryPath& path, const std::string& given) {
    const std::string name = given.empty() ? kesta::Library::kFileName : given;
    const bool byPath = name.find('/') != std::string::npos;
    const std::string runpath = report.root.empty() ? OwnRunpath() : "";
    const std::string origin = OwnFolder();
    std::string found = path.Find(name, runpath, origin);
    for (const std::string& folder : byPath ? Names{""} : path.Folders(runpath, origin)) {
        const std::string tried = report.root + folder + (byPath ? name : "/" + name);
        report.paths.push_back(tried);
        // Passed over, since it is for another machine: that is worth telling.
        if (found.empty() && ::access(tried.c_str(), F_OK) == 0) found = tried;
    }
    const Suspect suspect = {"client-library", N_("client library"),
                             byPath ? name : Without(report.root, found),
                             BringBack(report.root, kesta::Library::kFileName,
                                       _("install the package libkesta-unified-zrkukey, or name "
                                         "the file with --library"))};
    if (found.empty() && !byPath) {
        report.Problem(
            "client-library.present", _(suspect.name),
            Fill(_("{1} is in none of the folders for libraries (--verbose lists them)"), {name}),
            suspect.remedy);
        return;
    }
    ElfFile file;
    if (!Usable(report, suspect, file)) return;
    report.Fine("client-library.present", _(suspect.name),
                Fill(_("{1}, {2}"), {report.root + suspect.path, MachineName(file.machine)}));
    CheckDependencies(report, path, suspect, file);
}

void CheckMakersLibraries(Report& report, const LibraryPath& path) {
    const auto remedy = [&](const char* file) {
        if (!report.installed) return std::string(_("comes with the install directory, see above"));
        return BringBack(report.root, file,
                         Fill(_("install the maker's package; it brings {1}"), {Words({file})}));
    };
    CheckMakersLibrary(report, path,
                       {"token-library", N_("token library"), places::kTokenLibrary,
                        remedy(places::kTokenLibrary)},
                       TokenEntryPoints());
    CheckMakersLibrary(report, path,
                       {"event-library", N_("event library"), places::kEventLibrary,
                        remedy(places::kEventLibrary)},
                       EventEntryPoints());
}

}  // namespace ukey

// doctor: why a key does not work here.
#include <sys/stat.h>
#include <unistd.h>

#include "commands.h"
#include "doctor/checks.h"
#include "doctor/metrics.h"

namespace ukey {
namespace {

struct DoctorWish {
    std::string root;
    bool verbose = false;
    bool noKey = false;
    int timeout = 20;  // seconds for a key to answer
    bool openMetrics = false;
    bool withSerial = false;
    std::string output;
};

std::string CheckedRoot(std::string root) {
    while (!root.empty() && root.back() == '/') root.pop_back();
    struct stat status {};
    if (!root.empty() && (::stat(root.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))) {
        throw UsageError("--root is \"" + root + "\", which is no folder");
    }
    return root;
}

std::optional<LogFailures> FailuresOf(const Report& report) {
    const std::string log = report.root + kesta::places::kLogFile;
    try {
        return ::access(log.c_str(), F_OK) == 0 ? CountFailures(log) : LogFailures();
    } catch (const FileError&) {
        return std::nullopt;
    }
}

void GiveMetrics(const Report& report, const DoctorWish& wish) {
    const std::string metrics = Metrics(report, FailuresOf(report), wish.withSerial);
    if (wish.output.empty() || wish.output == "-") {
        WriteOutput("-", metrics);
    } else {
        WriteMetrics(wish.output, metrics);
    }
}

Exit Doctor(Session& session, const DoctorWish& wish) {
    Report report;
    report.root = CheckedRoot(wish.root);
    const LibraryPath path(report.root);
    CheckInstallDirectory(report);
    CheckMakersLibraries(report, path);
    CheckClientLibrary(report, path, session.libraryFile);
    // A library that does not pass is not loaded, nor one that anybody may have put there; and a
    // folder is no running system.
    const bool loadable = report.Count(Severity::kProblem) == 0;
    if (!report.softwareKey) CheckUsbDevice(report, !session.givenSerial.empty());
    if (loadable && report.root.empty() && !wish.noKey) {
        CheckKey(report, {session.libraryFile, session.givenSerial, wish.timeout});
    }
    if (report.installed && !report.softwareKey) CheckCompanions(report);
    CheckLog(report);
    report.Rank();
    if (wish.openMetrics) {
        GiveMetrics(report, wish);
    } else if (session.json) {
        PrintJson(ToJson(report));
    } else {
        Print(report, wish.verbose);
    }
    return report.Count(Severity::kProblem) == 0 ? Exit::kOk : Exit::kFindings;
}

}  // namespace

void AddDoctorCommand(CLI::App& app, Session& session) {
    CLI::App* const command =
        AddCommand(app, session, "doctor", "Find out why a key does not work, and what to do",
                   "  ukey doctor                      start here when a call answers -101\n"
                   "  ukey doctor --verbose            with every path and entry point\n"
                   "  ukey doctor --json | jq '.findings[] | select(.severity == \"problem\")'\n"
                   "  ukey doctor --serial K123        of several keys this one\n"
                   "  ukey doctor --openmetrics        for a fleet's node exporters\n"
                   "  ukey doctor --root /mnt/target   the files of another system",
                   {true, true});
    auto wish = std::make_shared<DoctorWish>();
    command
        ->add_option("--root", wish->root, "Look at the system below this folder; asks for no key")
        ->type_name("DIR");
    command->add_flag("--no-key", wish->noKey, "Load nothing and ask for no key");
    command
        ->add_option("-t,--timeout", wish->timeout,
                     "Give the key so many seconds to answer, by default 20")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 3600).description(""));
    command->add_flag("-v,--verbose", wish->verbose, "Show every path tried and every entry point");
    CLI::Option* const metrics =
        command->add_flag("--openmetrics", wish->openMetrics,
                          "Print metrics for the node exporter's textfile collector");
    command->add_flag("--with-serial", wish->withSerial, "Put the key's serial number into them")
        ->needs(metrics);
    command
        ->add_option("-o,--output", wish->output,
                     "Write the metrics to this file, readable by everybody")
        ->type_name("FILE")
        ->needs(metrics);
    command->callback(
        [&session, wish] { session.action = [&session, wish] { return Doctor(session, *wish); }; });
}

}  // namespace ukey

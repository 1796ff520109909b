// doctor: why a key does not work here.
#include <sys/stat.h>
#include <unistd.h>

#include "doctor/checks.h"
#include "doctor/metrics.h"
#include "session.h"

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
        throw UsageError(Fill(_("--root is \"{1}\", which is no folder"), {root}));
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
    // An exporter, which is another user, must be able to read the file.
    WriteOutput(wish.output, Metrics(report, FailuresOf(report), wish.withSerial), 0644);
}

Exit Look(Session& session, const DoctorWish& wish) {
    Report report;
    report.root = CheckedRoot(wish.root);
    Examine(report, {session.libraryFile, session.givenSerial, wish.timeout}, wish.noKey);
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

Action Doctor(const Options& options, Session& session) {
    const auto wish = std::make_shared<DoctorWish>();
    options.Text("--root", wish->root, "DIR",
                 N_("Look at the system below this folder; asks for no key"));
    options.Flag("--no-key", wish->noKey, N_("Load nothing and ask for no key"));
    options.Number("-t,--timeout", wish->timeout, 1, 3600, "SECONDS",
                   N_("Give the key so many seconds to answer, by default 20"));
    options.Flag("-v,--verbose", wish->verbose, N_("Show every path tried and every entry point"));
    const Option metrics =
        options.Flag("--openmetrics", wish->openMetrics,
                     N_("Print metrics for the node exporter's textfile collector"));
    options.Flag("--with-serial", wish->withSerial, N_("Put the key's serial number into them"))
        .Needs(metrics);
    options
        .Text("-o,--output", wish->output, "FILE",
              N_("Write the metrics to this file, readable by everybody"))
        .Needs(metrics);
    options.Examples(
        "  ukey doctor                      start here when a call answers -101\n"
        "  ukey doctor --verbose            with every path and entry point\n"
        "  ukey doctor --json | jq '.findings[] | select(.severity == \"problem\")'\n"
        "  ukey doctor --serial K123        of several keys this one\n"
        "  ukey doctor --openmetrics        for a fleet's node exporters\n"
        "  ukey doctor --root /mnt/target   the files of another system");
    return Does(Look, session, wish);
}

}  // namespace ukey

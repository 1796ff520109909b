// report: what a developer needs to know of a machine, in an archive that may be mailed.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "command/show.h"
#include "doctor/checks.h"
#include "recording.h"
#include "report/page.h"

namespace ukey {
namespace {

namespace recorder = kesta::recorder;

constexpr std::size_t kLargestArchive = std::size_t{1} << 20U;
// Of a recording as it lies on the disk: a larger one is not worth packing to see that it is.
constexpr off_t kLargestRecording = off_t{8} << 20U;
constexpr const char* kFolder = "ukey-report";

struct Wish {
    std::string trace;
    bool full = false;
    bool dryRun = false;
    bool noKey = false;
    int timeout = 3;
};

struct Recorded {
    std::string bytes;
    TraceFacts facts;
};

bool Failed(const recorder::Call& call) {
    return !call.ended() || call.how != recorder::kReturned ||
           (call.result.is_number() && call.result != 0);
}

TraceFacts FactsOf(const recorder::Recording& recording) {
    TraceFacts facts;
    facts.made =
        TimeOf(static_cast<std::time_t>(recording.description.value("wall", 0ULL) / 1000000000ULL));
    for (const recorder::Process& process : recording.processes) {
        TraceFacts::Program program = {process.program, process.id, process.machine, 0, 0};
        for (const recorder::Call& call : recording.calls) {
            if (call.process != process.number) continue;
            if (recording.FunctionOf(call).boundary != "exports") continue;
            ++program.calls;
            if (Failed(call)) ++program.failed;
        }
        facts.programs.push_back(std::move(program));
    }
    return facts;
}

Recorded ReadTrace(const Wish& wish) {
    struct stat status {};
    if (::stat(wish.trace.c_str(), &status) == 0 && status.st_size > kLargestRecording) {
        throw FileError(
            Fill(_("{1} is too large for a report; send it beside the report"), {wish.trace}), 0);
    }
    Recorded recorded;
    recorded.bytes = ReadInput(wish.trace);
    const recorder::Recording recording = recorder::ParseRecording(recorded.bytes);
    if (recording.full && !wish.full) {
        throw UsageError(Fill(_("{1} was recorded with --full: it holds names and contents; record "
                                "again without it"),
                              {wish.trace}));
    }
    recorded.facts = FactsOf(recording);
    return recorded;
}

std::string LogText(const LogTail& log, Mask& mask) {
    std::string text;
    for (const LogRecord& record : log.records) text += MaskedRecord(record, mask);
    return text;
}

// Everything that is asked, in the order in which nothing disturbs what follows: asking the key
// writes to the log.
Contents Ask(const Session& session, const Wish& wish) {
    Contents contents;
    contents.made = std::time(nullptr);
    contents.masked = !wish.full;
    contents.log = ReadTail(kesta::places::kLogFile);
    Examine(contents.doctor, {session.libraryFile, session.givenSerial, wish.timeout, true},
            wish.noKey);
    contents.versions = ReadVersions(contents.doctor);
    return contents;
}

std::vector<Member> Members(const Session& session, const Wish& wish, Contents& contents) {
    std::optional<Recorded> recorded;
    if (!wish.trace.empty()) {
        recorded = ReadTrace(wish);
        contents.trace = recorded->facts;
    }
    Mask mask(!wish.full);
    LearnMachine(mask);
    mask.Name("serial", session.givenSerial);
    MaskAll(contents, mask);
    std::vector<Member> members = {
        {"report.json", ToJson(contents).Text() + "\n", N_("this report, for programs")},
        {"doctor.json", ToJson(contents.doctor).Text() + "\n",
         N_("what ukey doctor found, with every path and entry point")},
        {"log.txt", LogText(contents.log, mask),
         N_("the end of the log, masked; ukey log reads it")}};
    if (recorded) {
        members.push_back({"recording.rec", recorded->bytes,
                           N_("the recording; ukey trace show prints it, ukey replay replays it")});
    }
    members.insert(members.begin(), {"report.html", ReportPage(contents, members),
                                     N_("findings with remedies, versions, the last failures")});
    return members;
}

void CheckTarget(const Session& session, const Wish& wish) {
    if (wish.dryRun) return;
    if (session.outputFile.empty()) {
        throw UsageError(_("name the archive with -o FILE; --dry-run shows what would go into it"));
    }
    if (session.ToFile()) return;
    if (session.json || ::isatty(STDOUT_FILENO) == 1) {
        throw UsageError(
            _("an archive on standard output goes into a pipe or a file, without "
              "--json"));
    }
}

void Tell(const Session& session, const Wish& wish, const std::vector<Member>& members,
          const Contents& contents, std::size_t packed) {
    const std::string verdict = contents.doctor.Verdict();
    if (session.json) {
        Json files = Json::array();
        for (const Member& member : members) {
            files.push_back(
                {{"name", member.name}, {"bytes", member.bytes.size()}, {"what", _(member.what)}});
        }
        Json object = {{"dryRun", wish.dryRun},
                       {"masked", contents.masked},
                       {"files", files},
                       {"bytes", packed},
                       {"verdict", verdict}};
        if (!wish.dryRun) object["output"] = session.outputFile;
        PrintJson(Success(object));
        return;
    }
    if (!wish.dryRun && !session.ToFile()) return TellAside(verdict);
    Table table;
    for (const Member& member : members) {
        table.Row({member.name, std::to_string(member.bytes.size()), _(member.what)});
    }
    Put(table.Text());
    PrintLine();
    const std::string size = std::to_string((packed + 1023) / 1024);
    PrintLine(wish.dryRun ? Fill(_("nothing was written; the archive would have {1} KiB"), {size})
                          : Fill(_("report of {1} KiB written to {2}"),
                                 {size, Printable(session.outputFile)}));
    PrintLine(Printable(verdict));
}

Exit Run(Session& session, const Wish& wish) {
    CheckTarget(session, wish);
    Contents contents = Ask(session, wish);
    const std::vector<Member> members = Members(session, wish, contents);
    const std::string archive = Zip(kFolder, members, contents.made);
    if (archive.size() > kLargestArchive) {
        throw FileError(Fill(_("{1} makes the report larger than 1 MiB; send it beside the report"),
                             {wish.trace}),
                        0);
    }
    if (!wish.dryRun) WriteOutput(session.outputFile, archive);
    Tell(session, wish, members, contents, archive.size());
    return Exit::kOk;
}

}  // namespace

Action MakeReport(const Options& options, Session& session) {
    const auto wish = std::make_shared<Wish>();
    options.Text("--trace", wish->trace, "FILE", N_("Put this recording into it"));
    options.Flag("--dry-run", wish->dryRun, N_("List what would go into it, write nothing"));
    options.Flag("--full", wish->full,
                 N_("Keep serial numbers and names; for keys of one's own. Key texts never"));
    options.Flag("--no-key", wish->noKey, N_("Load nothing and ask for no key"));
    options.Number("-t,--timeout", wish->timeout, 1, 3600, "SECONDS",
                   N_("Give the key so many seconds to answer, by default 3"));
    options.Examples(
        "  ukey report -o report.zip                      open report.html in it\n"
        "  ukey report -o report.zip --trace case.rec     with a recording\n"
        "  ukey report --dry-run                          look first");
    options.Remark(
        N_("Serial numbers, media ids, labels, names in certificates, users, hosts, home folders\n"
           "and key texts are masked. The exit status is 0 when the report is written, whatever\n"
           "it tells; its last line is the verdict of `ukey doctor`."));
    return
        [&session, wish] { return OnRecording(wish->trace, [&] { return Run(session, *wish); }); };
}

}  // namespace ukey

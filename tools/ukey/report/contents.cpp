#include "report/contents.h"

#include "exit_codes.h"
#include "log/show.h"

namespace ukey {
namespace {

void MaskFindings(Report& report, Mask& mask) {
    for (const Finding& finding : report.findings) mask.LearnFrom(finding.detail);
    for (const std::string& path : report.paths) mask.LearnFrom(path);
    for (Finding& finding : report.findings) {
        finding.detail = mask.Text(finding.detail);
        finding.remedy = mask.Text(finding.remedy);
    }
    for (std::string& path : report.paths) path = mask.Text(path);
}

void MaskKey(KeyFacts& key, Mask& mask) {
    key.serial = mask.Name("serial", key.serial);
    for (KeyCertificate& certificate : key.certificates) {
        if (!certificate.facts) continue;
        CertificateFacts& facts = *certificate.facts;
        facts.subject = mask.Name("name", facts.subject);
        facts.issuer = mask.Name("name", facts.issuer);
        facts.serialNumber = mask.Name("certificate", facts.serialNumber);
    }
}

Json System(const Rows& system) {
    constexpr const char* kFields[] = {"ukey",  "system",   "kernel",  "processor",
                                       "glibc", "language", "timeZone"};
    Json object = Json::object();
    for (std::size_t i = 0; i < system.size(); ++i) object[kFields[i]] = system[i].second;
    return object;
}

Json Libraries(const Versions& versions) {
    Json libraries = Json::array();
    for (const InstalledLibrary& library : versions.libraries) {
        Json entry = {{"id", library.file.id},
                      {"file", library.file.path},
                      {"bytes", library.size},
                      {"sha256", library.hash}};
        if (!library.version.empty()) entry["version"] = library.version;
        if (!library.package.empty()) entry["package"] = library.package;
        libraries.push_back(std::move(entry));
    }
    return libraries;
}

Json Packages(const Versions& versions) {
    Json packages = Json::array();
    for (const Package& package : versions.packages) {
        packages.push_back({{"name", package.name},
                            {"version", package.version},
                            {"architecture", package.architecture},
                            {"state", package.state}});
    }
    return packages;
}

Json Key(const KeyFacts& key) {
    Json object = {{"serial", key.serial}};
    if (key.tries) {
        object["pin"] = {{"triesLeft", key.tries->left},
                         {"maxTries", key.tries->most},
                         {"locked", key.tries->locked}};
    }
    object["certificates"] = Json::array();
    for (const KeyCertificate& certificate : key.certificates) {
        Json entry = {{"pair", certificate.words}};
        if (certificate.facts) entry.update(ToJson(*certificate.facts));
        object["certificates"].push_back(std::move(entry));
    }
    return object;
}

Json Processes(const LogTail& log) {
    Json processes = Json::array();
    for (const LogProcess& process : log.processes) {
        processes.push_back({{"process", process.number},
                             {"first", TimeText(process.first)},
                             {"last", TimeText(process.last)},
                             {"calls", process.calls},
                             {"failed", process.failed}});
    }
    return processes;
}

Json Failures(const LogTail& log) {
    Json failures = Json::array();
    for (const LogCall& call : log.failures) {
        Json entry = {
            {"operation", KnownFunction(call)}, {"process", call.process}, {"thread", call.thread}};
        if (call.begin) entry["begin"] = TimeText(*call.begin);
        if (call.end) entry["end"] = TimeText(*call.end);
        if (const auto micros = call.Micros()) entry["microseconds"] = *micros;
        entry["code"] = *call.code;
        entry["codeText"] = kesta::CodeText(*call.code);
        entry["kind"] = Name(KindOfCode(*call.code));
        entry["message"] = MeaningOf(*call.code);
        failures.push_back(std::move(entry));
    }
    return failures;
}

Json Log(const LogTail& log) {
    Json object = {{"file", kesta::places::kLogFile}, {"bytes", log.size}, {"read", log.read}};
    if (log.strangeBytes != 0) object["strangeBytes"] = log.strangeBytes;
    if (!log.fault.empty()) object["fault"] = log.fault;
    return object;
}

Json Trace(const TraceFacts& trace) {
    Json programs = Json::array();
    for (const TraceFacts::Program& program : trace.programs) {
        programs.push_back({{"program", program.name},
                            {"process", program.process},
                            {"machine", program.machine},
                            {"calls", program.calls},
                            {"failed", program.failed}});
    }
    return {{"made", trace.made}, {"programs", programs}};
}

}  // namespace

void MaskAll(Contents& contents, Mask& mask) {
    Report& report = contents.doctor;
    if (report.key) MaskKey(*report.key, mask);
    MaskFindings(report, mask);
    for (InstalledLibrary& library : contents.versions.libraries) {
        library.file.path = mask.Text(library.file.path);
    }
    if (!contents.trace) return;
    for (TraceFacts::Program& program : contents.trace->programs) {
        program.name = mask.Text(program.name);
    }
}

std::string TimeOf(std::time_t time) {
    std::tm parts{};
    char text[32];
    ::gmtime_r(&time, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string MeaningOf(int code) {
    const std::string own = kesta::OwnMessage(code);
    if (!own.empty()) return own;
    return _(StatusOf(KindOfCode(code)).words);
}

Json ToJson(const Contents& contents) {
    const Json doctor = ToJson(contents.doctor);
    Json object = {{"format", "ukey-report"},
                   {"formatVersion", 1},
                   {"made", TimeOf(contents.made)},
                   {"masked", contents.masked},
                   {"verdict", contents.doctor.Verdict()},
                   {"problems", contents.doctor.Count(Severity::kProblem)},
                   {"warnings", contents.doctor.Count(Severity::kWarning)},
                   {"findings", *doctor.Find("findings")}};
    if (contents.doctor.key) object["key"] = Key(*contents.doctor.key);
    object["failures"] = Failures(contents.log);
    object["processes"] = Processes(contents.log);
    object["log"] = Log(contents.log);
    if (contents.trace) object["recording"] = Trace(*contents.trace);
    object["system"] = System(contents.versions.system);
    object["libraries"] = Libraries(contents.versions);
    object["packages"] = Packages(contents.versions);
    return object;
}

}  // namespace ukey

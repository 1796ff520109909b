#include "doctor/finding.h"

#include <unistd.h>

#include <algorithm>

namespace ukey {
namespace {

const char* Word(Severity severity) {
    switch (severity) {
        case Severity::kProblem:
            return "problem";
        case Severity::kWarning:
            return "warning";
        case Severity::kFine:
            break;
    }
    return "fine";
}

std::string Mark(Severity severity) {
    switch (severity) {
        case Severity::kProblem:
            return Paint(STDOUT_FILENO, Colour::kRed, "problem");
        case Severity::kWarning:
            return Paint(STDOUT_FILENO, Colour::kYellow, "warning");
        case Severity::kFine:
            break;
    }
    return Paint(STDOUT_FILENO, Colour::kGreen, "ok     ");
}

void PrintFinding(const Finding& finding, std::size_t width) {
    std::string line = Mark(finding.severity) + "  " + finding.subject;
    line.append(width - Columns(finding.subject) + 2, ' ');
    PrintLine(line + Printable(finding.detail));
    if (!finding.remedy.empty()) PrintLine(std::string(9, ' ') + "-> " + finding.remedy);
}

std::string Counted(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

void Report::Fine(const std::string& id, const std::string& subject, const std::string& detail) {
    findings.push_back({id, Severity::kFine, subject, detail, ""});
}

void Report::Warn(const std::string& id, const std::string& subject, const std::string& detail,
                  const std::string& remedy) {
    findings.push_back({id, Severity::kWarning, subject, detail, remedy});
}

void Report::Problem(const std::string& id, const std::string& subject, const std::string& detail,
                     const std::string& remedy) {
    findings.push_back({id, Severity::kProblem, subject, detail, remedy});
}

std::size_t Report::Count(Severity severity) const {
    return static_cast<std::size_t>(
        std::count_if(findings.begin(), findings.end(),
                      [severity](const Finding& finding) { return finding.severity == severity; }));
}

void Report::Rank() {
    std::stable_sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
        return static_cast<int>(a.severity) < static_cast<int>(b.severity);
    });
}

std::string Report::Verdict() const {
    const std::size_t problems = Count(Severity::kProblem);
    const std::size_t warnings = Count(Severity::kWarning);
    const std::string also = warnings == 0 ? "" : " and " + Counted(warnings, "warning");
    if (problems != 0) {
        const auto first = std::find_if(
            findings.begin(), findings.end(),
            [](const Finding& finding) { return finding.severity == Severity::kProblem; });
        return Counted(problems, "problem") + also + ": begin with the remedy for the " +
               first->subject + ".";
    }
    const std::string seen = key ? "the key " + key->serial + " answers"
                                 : "the files are as they should be, the key was not asked";
    if (warnings == 0) return "All is well: " + seen + ".";
    return "No problem: " + seen + "; " + Counted(warnings, "warning") +
           (warnings == 1 ? " is" : " are") + " worth a look.";
}

Json ToJson(const Report& report) {
    Json findings = Json::array();
    for (const Finding& finding : report.findings) {
        Json entry = {{"id", finding.id},
                      {"severity", Word(finding.severity)},
                      {"subject", finding.subject},
                      {"detail", finding.detail}};
        if (!finding.remedy.empty()) entry["remedy"] = finding.remedy;
        findings.push_back(std::move(entry));
    }
    Json entryPoints = Json::array();
    for (const EntryPoint& entry : report.entryPoints) {
        entryPoints.push_back(
            {{"library", entry.library}, {"name", entry.name}, {"found", entry.found}});
    }
    return {{"ok", report.Count(Severity::kProblem) == 0},
            {"verdict", report.Verdict()},
            {"problems", report.Count(Severity::kProblem)},
            {"warnings", report.Count(Severity::kWarning)},
            {"root", report.root},
            {"paths", report.paths},
            {"findings", findings},
            {"entryPoints", entryPoints}};
}

void Print(const Report& report, bool everything) {
    std::size_t width = 0;
    for (const Finding& finding : report.findings) {
        width = std::max(width, Columns(finding.subject));
    }
    for (const Finding& finding : report.findings) PrintFinding(finding, width);
    if (everything) {
        PrintLine();
        PrintLine("Paths tried:");
        for (const std::string& path : report.paths) PrintLine("  " + Printable(path));
        PrintLine("Entry points:");
        for (const EntryPoint& entry : report.entryPoints) {
            PrintLine("  " + std::string(entry.found ? "found    " : "missing  ") + entry.library +
                      "  " + entry.name);
        }
    }
    PrintLine();
    PrintLine(Printable(report.Verdict()));
}

}  // namespace ukey

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

// Of all severities as wide as the widest.
std::string Padded(const std::string& text, std::size_t width) {
    return text + std::string(width - std::min(width, Columns(text)), ' ');
}

struct Mark {
    Colour colour;
    const char* word;
};
constexpr Mark kMarks[] = {
    {Colour::kRed, N_("problem")}, {Colour::kYellow, N_("warning")}, {Colour::kGreen, N_("ok")}};

std::size_t MarkWidth() {
    std::size_t width = 0;
    for (const Mark& mark : kMarks) width = std::max(width, Columns(_(mark.word)));
    return width;
}

void PrintFinding(const Finding& finding, std::size_t width) {
    const Mark& mark = kMarks[static_cast<int>(finding.severity)];
    PrintLine(Paint(STDOUT_FILENO, mark.colour, Padded(_(mark.word), MarkWidth())) + "  " +
              Padded(finding.subject, width) + "  " + Printable(finding.detail));
    if (finding.remedy.empty()) return;
    PrintLine(std::string(MarkWidth() + 2, ' ') + "-> " + Printable(finding.remedy));
}

std::string Problems(std::size_t count) {
    return Fill(count == 1 ? _("{1} problem") : _("{1} problems"), {std::to_string(count)});
}

std::string Warnings(std::size_t count) {
    return Fill(count == 1 ? _("{1} warning") : _("{1} warnings"), {std::to_string(count)});
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
    if (problems != 0) {
        const auto first = std::find_if(
            findings.begin(), findings.end(),
            [](const Finding& finding) { return finding.severity == Severity::kProblem; });
        const std::string found =
            warnings == 0 ? Problems(problems)
                          : Fill(_("{1} and {2}"), {Problems(problems), Warnings(warnings)});
        return Fill(_("{1}: begin with the remedy for the {2}."), {found, first->subject});
    }
    const std::string seen = key ? Fill(_("the key {1} answers"), {key->serial})
                                 : _("the files are as they should be, the key was not asked");
    if (warnings == 0) return Fill(_("All is well: {1}."), {seen});
    return Fill(warnings == 1 ? _("No problem: {1}; {2} is worth a look.")
                              : _("No problem: {1}; {2} are worth a look."),
                {seen, Warnings(warnings)});
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
        PrintLine(_("Paths tried:"));
        for (const std::string& path : report.paths) PrintLine("  " + Printable(path));
        PrintLine(_("Entry points:"));
        const std::size_t wide = std::max(Columns(_("found")), Columns(_("missing")));
        for (const EntryPoint& entry : report.entryPoints) {
            PrintLine("  " + Padded(entry.found ? _("found") : _("missing"), wide) + "  " +
                      entry.library + "  " + entry.name);
        }
    }
    PrintLine();
    PrintLine(Printable(report.Verdict()));
}

}  // namespace ukey

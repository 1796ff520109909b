#include "report/page.h"

#include "exit_codes.h"
#include "log/show.h"
#include "report_style.h"

namespace ukey {
namespace {

std::string Escaped(const std::string& text) {
    std::string safe;
    for (const char c : Printable(text, "\n")) {
        switch (c) {
            case '&':
                safe += "&amp;";
                break;
            case '<':
                safe += "&lt;";
                break;
            case '>':
                safe += "&gt;";
                break;
            case '"':
                safe += "&quot;";
                break;
            default:
                safe += c;
        }
    }
    return safe;
}

std::string Head(const char* sentence) {
    return "<h2>" + Escaped(sentence) + "</h2>\n";
}

std::string Paragraph(const std::string& text, const char* name = "") {
    const std::string named = *name == '\0' ? "" : std::string(" class=\"") + name + "\"";
    return "<p" + named + ">" + Escaped(text) + "</p>\n";
}

// Rows of plain texts below the columns' names.
class HtmlTable {
public:
    explicit HtmlTable(const std::vector<std::string>& names) {
        if (!names.empty()) Row(names, "th");
    }
    void Row(const std::vector<std::string>& cells, const std::string& tag = "td",
             const std::string& kind = "") {
        html_ += kind.empty() ? "<tr>" : "<tr class=\"" + kind + "\">";
        for (const std::string& cell : cells) {
            html_ += "<" + tag + ">" + Escaped(cell) + "</" + tag + ">";
        }
        html_ += "</tr>\n";
    }
    std::string Html() const { return "<table>\n" + html_ + "</table>\n"; }

private:
    std::string html_;
};

std::string Findings(const Report& report) {
    static constexpr const char* kWords[] = {N_("problem"), N_("warning"), N_("fine")};
    static constexpr const char* kKinds[] = {"problem", "warning", "fine"};
    HtmlTable table({_("Severity"), _("What"), _("Finding"), _("Remedy")});
    for (const Finding& finding : report.findings) {
        const auto severity = static_cast<std::size_t>(finding.severity);
        table.Row({_(kWords[severity]), finding.subject, finding.detail, finding.remedy}, "td",
                  kKinds[severity]);
    }
    return Head(_("Findings")) + table.Html();
}

std::string Key(const Report& report) {
    std::string html = Head(_("The key"));
    if (!report.key) return html + Paragraph(_("No key has answered."));
    const KeyFacts& key = *report.key;
    HtmlTable facts({});
    facts.Row({_("Serial number"), key.serial});
    facts.Row({_("PIN"), !key.tries          ? _("not known")
                         : key.tries->locked ? _("locked")
                                             : Fill(_("{1} of {2} tries are left"),
                                                    {std::to_string(key.tries->left),
                                                     std::to_string(key.tries->most)})});
    html += facts.Html();
    HtmlTable table({_("Certificate"), _("Subject"), _("Issuer"), _("Valid from"), _("Valid until"),
                     _("Days left")});
    for (const KeyCertificate& certificate : key.certificates) {
        if (certificate.facts) {
            const CertificateFacts& one = *certificate.facts;
            table.Row({certificate.words, one.subject, one.issuer, one.notBefore, one.notAfter,
                       std::to_string(one.daysLeft)});
        } else {
            table.Row({certificate.words, _("cannot be read"), "", "", "", ""});
        }
    }
    return html +
           (key.certificates.empty() ? Paragraph(_("It holds no certificates.")) : table.Html());
}

std::string Failures(const LogTail& log) {
    std::string html = Head(_("The last failures in the log"));
    if (!log.fault.empty()) return html + Paragraph(log.fault);
    if (log.failures.empty()) return html + Paragraph(_("None."));
    html += "<ol class=\"line\">\n";
    for (const LogCall& call : log.failures) {
        const auto micros = call.Micros();
        html += "<li><time>" + Escaped(TimeText(call.begin ? *call.begin : *call.end)) +
                "</time> <b>" + Escaped(KnownFunction(call)) + "</b> <code>" +
                Escaped(kesta::CodeText(*call.code)) + "</code> " + Escaped(MeaningOf(*call.code)) +
                " <small>" + Escaped(Fill(_("process {1}"), {std::to_string(call.process)})) +
                (micros ? ", " + Escaped(DurationText(*micros)) : "") + "</small></li>\n";
    }
    return html + "</ol>\n";
}

std::string Processes(const Contents& contents) {
    std::string html = Head(_("What ran"));
    HtmlTable table({_("Process"), _("First call"), _("Last call"), _("Calls"), _("Failed")});
    for (const LogProcess& process : contents.log.processes) {
        table.Row({std::to_string(process.number), TimeText(process.first), TimeText(process.last),
                   std::to_string(process.calls), std::to_string(process.failed)});
    }
    html += contents.log.processes.empty()
                ? Paragraph(_("The log tells of no call."))
                : Paragraph(_("As the log tells: day of the month and local time.")) + table.Html();
    if (!contents.trace) return html;
    HtmlTable programs({_("Program"), _("Process"), _("Processor"), _("Calls"), _("Failed")});
    for (const TraceFacts::Program& program : contents.trace->programs) {
        programs.Row({program.name, std::to_string(program.process), program.machine,
                      std::to_string(program.calls), std::to_string(program.failed)});
    }
    return html + Paragraph(Fill(_("As the recording of {1} tells:"), {contents.trace->made})) +
           programs.Html();
}

std::string Installed(const Versions& versions) {
    HtmlTable system({});
    for (const auto& [name, value] : versions.system) system.Row({name, value});
    HtmlTable libraries(
        {_("Library"), _("File"), _("Version"), _("Package"), _("Bytes"), _("SHA-256")});
    for (const InstalledLibrary& library : versions.libraries) {
        libraries.Row({library.file.subject, library.file.path, library.version, library.package,
                       std::to_string(library.size), library.hash});
    }
    HtmlTable packages({_("Package"), _("Version"), _("Architecture"), _("State")});
    for (const Package& package : versions.packages) {
        packages.Row({package.name, package.version, package.architecture, package.state});
    }
    return Head(_("Versions")) + system.Html() +
           (versions.libraries.empty() ? Paragraph(_("None of the libraries is there."))
                                       : libraries.Html()) +
           (versions.packages.empty() ? Paragraph(_("There is no list of packages."))
                                      : packages.Html());
}

std::string Beside(const std::vector<Member>& members) {
    HtmlTable table({_("File"), _("Bytes"), _("What it holds")});
    for (const Member& member : members) {
        table.Row({member.name, std::to_string(member.bytes.size()), _(member.what)});
    }
    return Head(_("Beside this page")) + table.Html();
}

}  // namespace

std::string ReportPage(const Contents& contents, const std::vector<Member>& members) {
    const std::string title = _("Report on a USB security key");
    // The language that the sentences are in, as HTML names it.
    std::string html = std::string("<!doctype html>\n<html lang=\"") + _("en") +
                       "\">\n<head>\n<meta charset=\"utf-8\">\n" + kReportStyle + "<title>" +
                       Escaped(title) + "</title>\n</head>\n<body>\n<h1>" + Escaped(title) +
                       "</h1>\n";
    html += Paragraph(contents.doctor.Verdict(), "verdict");
    html += Paragraph(
        Fill(_("Made {1}."), {TimeOf(contents.made)}) + " " +
        (contents.masked ? _("Serial numbers, names, users, hosts and home folders are replaced: "
                             "the same value by the same name throughout. Key texts are left out.")
                         : _("Serial numbers and names are as they are. Key texts are left "
                             "out.")));
    html += Findings(contents.doctor) + Key(contents.doctor) + Failures(contents.log) +
            Processes(contents) + Installed(contents.versions) + Beside(members);
    return html + Paragraph(contents.doctor.Verdict(), "verdict") + "</body>\n</html>\n";
}

}  // namespace ukey

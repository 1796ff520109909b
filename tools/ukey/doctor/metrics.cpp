#include "doctor/metrics.h"

#include <ctime>
#include <utility>
#include <vector>

#include "names.h"

namespace ukey {
namespace {

using Labels = std::vector<std::pair<const char*, std::string>>;

std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '"' || c == '\\') escaped += '\\';
        const bool plain = c >= ' ' && c < '\x7F';
        escaped += plain ? c : '?';
    }
    return escaped;
}

class Writer {
public:
    explicit Writer(Labels everywhere) : everywhere_(std::move(everywhere)) {}

    void Head(const char* name, const char* help) {
        name_ = std::string("kesta_") + name;
        text_ += "# HELP " + name_ + " " + help + "\n# TYPE " + name_ + " gauge\n";
    }
    void Sample(long long value, Labels labels = {}) {
        labels.insert(labels.begin(), everywhere_.begin(), everywhere_.end());
        text_ += name_;
        const char* between = "{";
        for (const auto& [label, content] : labels) {
            text_ += between + std::string(label) + "=\"" + Escaped(content) + "\"";
            between = ",";
        }
        text_ += (labels.empty() ? " " : "} ") + std::to_string(value) + "\n";
    }
    std::string Text() const { return text_ + "# EOF\n"; }

private:
    const Labels everywhere_;
    std::string name_;
    std::string text_;
};

// The seconds since 1970 of "2026-01-31 12:00:00 UTC", whatever stands between date and time.
long long Seconds(const std::string& time) {
    std::tm parts{};
    if (std::sscanf(time.c_str(), "%4d-%2d-%2d%*c%2d:%2d:%2d", &parts.tm_year, &parts.tm_mon,
                    &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &parts.tm_sec) != 6) {
        return 0;
    }
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    return ::timegm(&parts);
}

bool DriverComplete(const Report& report) {
    for (const Finding& finding : report.findings) {
        if (finding.severity != Severity::kProblem) continue;
        for (const char* const part :
             {"install-directory", "token-library", "event-library", "client-library"}) {
            if (finding.id.rfind(part, 0) == 0) return false;
        }
    }
    return true;
}

void WriteKey(Writer& writer, const KeyFacts& key) {
    if (key.tries) {
        writer.Head("pin_tries_left", "PIN tries that are left.");
        writer.Sample(key.tries->left);
        writer.Head("pin_locked", "1 when the PIN is locked.");
        writer.Sample(key.tries->locked ? 1 : 0);
    }
    writer.Head("certificate_not_after_timestamp_seconds",
                "When a certificate on the key ends; days left are (this - time()) / 86400.");
    for (const KeyCertificate& certificate : key.certificates) {
        if (!certificate.facts) continue;
        const std::size_t blank = certificate.words.find(' ');
        writer.Sample(Seconds(certificate.facts->notAfter),
                      {{"type", certificate.words.substr(0, blank)},
                       {"algorithm", certificate.words.substr(blank + 1)}});
    }
}

}  // namespace

std::string Metrics(const Report& report, const std::optional<LogFailures>& failures,
                    bool withSerial) {
    Labels everywhere;
    if (withSerial && report.key) everywhere.emplace_back("serial", report.key->serial);
    Writer writer(std::move(everywhere));
    writer.Head("key_present", "1 when the token library answers for a key.");
    writer.Sample(report.key ? 1 : 0);
    writer.Head("driver_complete", "1 when the libraries are there, whole and safe to load.");
    writer.Sample(DriverComplete(report) ? 1 : 0);
    writer.Head("doctor_findings", "What needs a look, by severity.");
    writer.Sample(static_cast<long long>(report.Count(Severity::kProblem)),
                  {{"severity", "problem"}});
    writer.Sample(static_cast<long long>(report.Count(Severity::kWarning)),
                  {{"severity", "warning"}});
    if (report.key) WriteKey(writer, *report.key);
    writer.Head("log_readable", "1 when the diagnostic log could be read or is not there.");
    writer.Sample(failures ? 1 : 0);
    if (failures && !failures->empty()) {
        writer.Head("log_failures", "Failed calls in the diagnostic log, which is cut at 100 MiB.");
        for (const auto& [call, count] : *failures) {
            writer.Sample(static_cast<long long>(count),
                          {{"operation", call.first}, {"code", kesta::CodeText(call.second)}});
        }
    }
    writer.Head("doctor_run_timestamp_seconds", "When this was found.");
    writer.Sample(std::time(nullptr));
    return writer.Text();
}

}  // namespace ukey

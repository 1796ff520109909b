// The key as the token library sees it: there, not locked, its certificates valid.
#include <ctime>
#include <iterator>

#include "doctor/key_answers.h"
#include "kit/language.h"

namespace ukey {
namespace {

using kesta::Kind;

constexpr long kSoon = 30;  // days
constexpr const char* kKey = N_("key");
constexpr const char* kCannotBeAsked = N_("cannot be asked for: {1}");

std::string Why(const KeyAnswer& answer) {
    return Fill("{1} ({2})", {answer.text, kesta::CodeText(answer.code)});
}

void ReportFailure(Report& report, const KeyQuestion& question, const KeyAnswer& answer) {
    const std::string again =
        question.serial.empty() ? "ukey doctor" : "ukey doctor --serial " + question.serial;
    switch (answer.kind) {
        case Kind::kNotLoaded:
            report.Problem("key", _(kKey), Fill(_(kCannotBeAsked), {Why(answer)}),
                           Fill(_("mend what is said above; then ask again: {1}"), {again}));
            return;
        case Kind::kSeveralKeys:
            report.Problem("key", _(kKey), Why(answer), _(kNameOne));
            return;
        case Kind::kBusy:
            report.Problem("key", _(kKey), Fill(_("it is busy: {1}"), {Why(answer)}),
                           Fill(_("end the other program that uses the key, or wait for it; then "
                                  "ask again: {1}"),
                                {again}));
            return;
        default:
            report.Problem("key", _(kKey), Why(answer),
                           Fill(_("insert the key, or another one; then ask again: {1}"), {again}));
    }
}

void ReportTries(Report& report, const KeyAnswer& answer) {
    const kesta::Bytes record(answer.text.begin(), answer.text.end());
    const auto tries = kesta::TriesOf(record, kesta::CodeTable::InUse()->pinRecord);
    report.key->tries = tries;
    if (!tries) return;
    const std::string left = Fill(_("{1} of {2} tries are left"),
                                  {std::to_string(tries->left), std::to_string(tries->most)});
    if (tries->locked) {
        report.Problem(
            "key.pin", _("PIN"), _("the PIN is locked"),
            report.softwareKey
                ? Fill(_("give the tries back: {1}"), {"softkey unlock " + report.key->serial})
                : _("bring the key to whoever issued it; nothing here unlocks it"));
    } else if (tries->left == 1 && tries->most > 1) {
        report.Warn("key.pin", _("PIN"), Fill(_("{1}; another wrong PIN locks the key"), {left}),
                    Fill(_("enter the right PIN, which gives the tries back: {1}"),
                         {"ukey pin verify --serial " + report.key->serial}));
    } else {
        report.Fine("key.pin", _("PIN"), left);
    }
}

// Dates and times of certificates compare as texts, whatever stands between the two.
std::string Comparable(const std::string& time) {
    return time.size() < 19 ? time : time.substr(0, 10) + " " + time.substr(11, 8);
}

bool InFuture(const std::string& time) {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    char text[32];
    ::gmtime_r(&now, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return Comparable(time) > text;
}

void ReportCertificate(Report& report, const KeyPair& pair, const KeyAnswer& answer) {
    const std::string subject = Fill(_("certificate {1}"), {_(pair.words)});
    const auto facts = ReadFacts(answer.text);
    report.key->certificates.push_back({pair.words, facts});
    const std::string request =
        std::string("ukey request -g ") + (pair.certType == 1 ? "sign:" : "enc:") +
        (pair.keyType == 2 ? "sm2:sm3" : "rsa:sha256") + " --pem -o new.csr";
    const std::string renew = Fill(_("enrol again; it begins with a new request: {1}"), {request});
    if (!facts) {
        report.Warn("key.certificate-form", subject, _("cannot be read"), renew);
        return;
    }
    const std::string until = facts->notAfter.substr(0, 10);
    if (facts->daysLeft < 0) {
        report.Problem("key.certificate", subject, Fill(_("ended on {1}"), {until}), renew);
    } else if (InFuture(facts->notBefore)) {
        report.Problem("key.certificate-begin", subject,
                       Fill(_("is not valid before {1} UTC"), {Comparable(facts->notBefore)}),
                       _("is the clock right? `date -u` shows it; otherwise wait"));
    } else if (facts->daysLeft <= kSoon) {
        report.Warn("key.certificate", subject,
                    Fill(facts->daysLeft == 1 ? _("ends on {1}, in {2} day")
                                              : _("ends on {1}, in {2} days"),
                         {until, std::to_string(facts->daysLeft)}),
                    renew);
    } else {
        report.Fine("key.certificate", subject, Fill(_("until {1}"), {until}));
    }
}

// Of a maker's key the code for "no such certificate" may not be known.
bool MeansNone(Kind kind) {
    return kind == Kind::kNotFound || kind == Kind::kUnknown || kind == Kind::kUnsupported ||
           kind == Kind::kBadArgument;
}

void ReportKey(Report& report, const KeyQuestion& question, const KeyAnswers& heard) {
    const auto& answers = heard.answers;
    if (answers.front().code != KESTA_OK) return ReportFailure(report, question, answers.front());
    report.key.emplace();
    report.key->serial = answers.front().text;
    report.Fine("key", _(kKey), report.key->serial);
    for (std::size_t i = 1; i < answers.size(); ++i) {
        const KeyAnswer& answer = answers[i];
        if (answer.code == KESTA_OK && i == 1) {
            ReportTries(report, answer);
        } else if (answer.code == KESTA_OK) {
            ReportCertificate(report, kKeyPairs[i - 2], answer);
        } else if (!MeansNone(answer.kind)) {
            return ReportFailure(report, question, answer);
        }
    }
    if (report.key->certificates.empty() && heard.ending.empty()) {
        report.Fine("key.certificate", _("certificates"), _("none on the key"));
    }
}

}  // namespace

void CheckKey(Report& report, const KeyQuestion& question) {
    const KeyAnswers heard = AskKey(question);
    report.version = heard.version;
    if (heard.startError != 0) {
        report.Problem("key", _(kKey), Fill(_(kCannotBeAsked), {SystemText(heard.startError)}),
                       _("end some programs: memory, processes or file descriptors ran out"));
        return;
    }
    if (!heard.answers.empty()) ReportKey(report, question, heard);
    if (heard.ending.empty()) return;
    report.Problem(
        "key", _(kKey),
        Fill(_("{1}, asked by {2}"), {heard.ending, AskedFunction(heard.answers.size())}),
        _("pull the key out and insert it again; if that does not help, ask the maker for "
          "a version of the package without this fault"));
}

}  // namespace ukey

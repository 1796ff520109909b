// The key as the token library sees it: there, not locked, its certificates valid.
#include <cstring>
#include <ctime>
#include <iterator>

#include "doctor/key_answers.h"

namespace ukey {
namespace {

using kesta::Kind;

constexpr long kSoon = 30;  // days

std::string Why(const KeyAnswer& answer) {
    return answer.text + " (" + kesta::CodeText(answer.code) + ")";
}

void ReportFailure(Report& report, const KeyQuestion& question, const KeyAnswer& answer) {
    const std::string again =
        question.serial.empty() ? "ukey doctor" : "ukey doctor --serial " + question.serial;
    switch (answer.kind) {
        case Kind::kNotLoaded:
            report.Problem("key", "key", "cannot be asked for: " + Why(answer),
                           "mend what is said above; then ask again: " + again);
            return;
        case Kind::kSeveralKeys:
            report.Problem("key", "key", Why(answer),
                           "pull out all but one, or name one: ukey doctor --serial SN");
            return;
        case Kind::kBusy:
            report.Problem("key", "key", "it is busy: " + Why(answer),
                           "end the other program that uses the key, or wait for it; then ask "
                           "again: " +
                               again);
            return;
        default:
            report.Problem("key", "key", Why(answer),
                           "insert the key, or another one; then ask again: " + again);
    }
}

void ReportTries(Report& report, const KeyAnswer& answer) {
    const kesta::Bytes record(answer.text.begin(), answer.text.end());
    const auto tries = kesta::TriesOf(record, kesta::CodeTable::InUse()->pinRecord);
    report.key->tries = tries;
    if (!tries) return;
    const std::string left =
        std::to_string(tries->left) + " of " + std::to_string(tries->most) + " tries are left";
    if (tries->locked) {
        report.Problem("key.pin", "PIN", "the PIN is locked",
                       report.softwareKey
                           ? "give the tries back: softkey unlock " + report.key->serial
                           : "bring the key to whoever issued it; nothing here unlocks it");
    } else if (tries->left == 1 && tries->most > 1) {
        report.Warn("key.pin", "PIN", left + "; another wrong PIN locks the key",
                    "enter the right PIN, which gives the tries back: ukey pin verify --serial " +
                        report.key->serial);
    } else {
        report.Fine("key.pin", "PIN", left);
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
    const std::string subject = std::string("certificate ") + pair.words;
    const auto facts = ReadFacts(answer.text);
    report.key->certificates.push_back({pair.words, facts});
    const std::string renew = std::string(
                                  "enrol again; it begins with a new request: ukey request "
                                  "-g ") +
                              (pair.certType == 1 ? "sign:" : "enc:") +
                              (pair.keyType == 2 ? "sm2:sm3" : "rsa:sha256") + " --pem -o new.csr";
    if (!facts) {
        report.Warn("key.certificate-form", subject, "cannot be read", renew);
        return;
    }
    const std::string until = facts->notAfter.substr(0, 10);
    if (facts->daysLeft < 0) {
        report.Problem("key.certificate", subject, "ended on " + until, renew);
    } else if (InFuture(facts->notBefore)) {
        report.Problem("key.certificate-begin", subject,
                       "is not valid before " + Comparable(facts->notBefore) + " UTC",
                       "is the clock right? `date -u` shows it; otherwise wait");
    } else if (facts->daysLeft <= kSoon) {
        report.Warn("key.certificate", subject,
                    "ends on " + until + ", in " + std::to_string(facts->daysLeft) +
                        (facts->daysLeft == 1 ? " day" : " days"),
                    renew);
    } else {
        report.Fine("key.certificate", subject, "until " + until);
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
    report.Fine("key", "key", report.key->serial);
    if (answers.size() > 1 && answers[1].code == KESTA_OK) ReportTries(report, answers[1]);
    for (std::size_t i = 2; i < answers.size(); ++i) {
        const KeyAnswer& answer = answers[i];
        if (answer.code == KESTA_OK) {
            ReportCertificate(report, kKeyPairs[i - 2], answer);
        } else if (!MeansNone(answer.kind)) {
            return ReportFailure(report, question, answer);
        }
    }
    if (report.key->certificates.empty() && heard.ending.empty()) {
        report.Fine("key.certificate", "certificates", "none on the key");
    }
}

}  // namespace

void CheckKey(Report& report, const KeyQuestion& question) {
    const KeyAnswers heard = AskKey(question);
    report.version = heard.version;
    if (heard.startError != 0) {
        report.Problem("key", "key",
                       std::string("cannot be asked for: ") + std::strerror(heard.startError),
                       "end some programs: memory, processes or file descriptors ran out");
        return;
    }
    if (!heard.answers.empty()) ReportKey(report, question, heard);
    if (heard.ending.empty()) return;
    report.Problem(
        "key", "key",
        "the token library " + heard.ending + ", asked by " + AskedFunction(heard.answers.size()),
        "pull the key out and insert it again; if that does not help, ask the maker for "
        "a version of the package without this fault");
}

}  // namespace ukey

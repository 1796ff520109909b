#include <openssl/rand.h>

#include "kit/certificate.h"
#include "kit/public_key.h"
#include "selectors.h"
#include "signing.h"

namespace ukey {
namespace {

constexpr Pair kSigning[] = {{1, 2}, {1, 1}};
constexpr Pair kEncryption[] = {{3, 2}, {3, 1}};

struct Check {
    std::string name;
    std::string failure;  // empty where all is well
    kesta::Failure cause;
};

// A text that nobody has used before: an old signature must not pass for a new one.
std::string FreshText() {
    unsigned char bytes[24];
    if (RAND_bytes(bytes, sizeof bytes) != 1) throw std::runtime_error(_("no random numbers"));
    return "self-test " +
           ToBase64(std::string_view(reinterpret_cast<const char*>(bytes), sizeof bytes));
}

Check Signs(Session& session, const std::string& serial, const Pair& pair,
            const std::string& certificate) {
    const std::string text = FreshText();
    const std::string warning = _("Self-test: sign a text without a meaning?");
    const ButtonHint hint(session, warning);
    const auto signature = session.library().Try().Sign(
        serial, pair.algorithm, HashTypeFor(pair.algorithm, 0), text, warning);
    Check check{Fill(_("{1}: signs, the certificate verifies"), {pair.Words()}), "", {}};
    if (!signature) {
        check.failure = signature.failure().message;
        check.cause = signature.failure();
    } else if (!PublicKey(certificate).Verifies(text, signature.value())) {
        check.failure = _("the signature is not the certificate's");
    }
    return check;
}

Check Decrypts(Session& session, const std::string& serial, const Pair& pair,
               const std::string& certificate) {
    const std::string text = FreshText();
    Check check{
        Fill(_("{1}: decrypts what was encrypted for the certificate"), {pair.Words()}), "", {}};
    const std::string cipher = PublicKey(certificate).Encrypted(text);
    if (cipher.empty()) {
        check.failure = _("nothing can be encrypted for the certificate");
        return check;
    }
    const auto plain = session.library().Try().AsymDec(serial, pair.type, pair.second(), cipher);
    if (!plain) {
        check.failure = plain.failure().message;
        check.cause = plain.failure();
    } else if (plain.value() != text) {
        check.failure = _("another text came out");
    }
    return check;
}

std::vector<Check> RunChecks(Session& session, const std::string& serial) {
    std::vector<Check> checks;
    const auto each = [&](const Pair& pair, auto test) {
        const auto certificate =
            session.library().Try().GetCert(serial, pair.first(), pair.second());
        if (certificate) checks.push_back(test(session, serial, pair, certificate.value()));
    };
    for (const Pair& pair : kSigning) each(pair, Signs);
    for (const Pair& pair : kEncryption) each(pair, Decrypts);
    if (checks.empty()) {
        throw Failed({static_cast<int>(Exit::kNotFound),
                      _("the key holds no certificate whose pair could be tried"),
                      "",
                      "",
                      {}});
    }
    return checks;
}

Exit Test(Session& session) {
    const std::string serial = session.UnlockedSerial();
    const std::vector<Check> checks = RunChecks(session, serial);
    Rows rows;
    Json list = Json::array();
    Exit worst = Exit::kOk;
    for (const Check& check : checks) {
        const bool fine = check.failure.empty();
        rows.emplace_back(fine ? _("ok") : _("failed"),
                          fine ? check.name : check.name + ": " + Printable(check.failure));
        Json entry = {{"check", check.name}, {"ok", fine}};
        if (!fine) entry["message"] = check.failure;
        if (check.cause.code != 0) entry["codeText"] = kesta::CodeText(check.cause.code);
        list.push_back(entry);
        if (worst == Exit::kOk && !fine) {
            worst = check.cause.code == 0 ? Exit::kFailed : KindOf(check.cause);
        }
    }
    if (session.json) {
        PrintJson({{"ok", worst == Exit::kOk}, {"serial", serial}, {"checks", list}});
    } else {
        PrintRows(rows);
    }
    return worst;
}

}  // namespace

Action SelfTest(const Options& options, Session& session) {
    options.Examples(
        "  ukey self-test           signs a random text and verifies it with the certificate,\n"
        "                           decrypts what it encrypted for the other; needs PIN and "
        "button");
    return [&session] { return Test(session); };
}

}  // namespace ukey

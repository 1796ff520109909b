#include "input.h"
#include "kit/certificate.h"

namespace ukey {
namespace {

struct Wish {
    std::string file;
    std::string keyFile;
    bool bundle = false;
    std::vector<std::string> signingFiles;
    std::vector<std::string> encryptionFiles;
    std::vector<std::string> keyFiles;

    bool Composed() const {
        return !signingFiles.empty() || !encryptionFiles.empty() || !keyFiles.empty();
    }
};

std::vector<std::string> ReadAll(const std::vector<std::string>& files) {
    std::vector<std::string> contents;
    for (const std::string& file : files) contents.push_back(OneLine(ReadSomething(file)));
    return contents;
}

std::string Described(const std::string& sentence, const std::string& certificate) {
    const auto facts = ReadFacts(certificate);
    if (!facts) return sentence;
    return Fill(_("{1}: {2}, until {3}"),
                {sentence, facts->subject, facts->notAfter.substr(0, 10)});
}

Exit ImportBundle(Session& session, const Wish& wish) {
    const std::string text = wish.Composed()
                                 ? kesta::Bundle{ReadAll(wish.signingFiles), ReadAll(wish.keyFiles),
                                                 ReadAll(wish.encryptionFiles)}
                                       .Text()
                                 : Trimmed(ReadSomething(wish.file));
    const std::string serial = session.UnlockedSerial();
    session.library().Batch_ImportX509Cert(serial, text);
    session.GiveDone(Fill(_("the bundle is on the key {1}"), {serial}),
                     {{"serial", serial}, {"imported", "bundle"}});
    return Exit::kOk;
}

Exit ImportOne(Session& session, const Wish& wish) {
    const std::string certificate = OneLine(ReadSomething(wish.file));
    const bool escrow = !wish.keyFile.empty();
    const std::string keyText = escrow ? OneLine(ReadSomething(wish.keyFile)) : std::string();
    const std::string serial = session.UnlockedSerial();
    if (escrow) {
        session.library().ImportEncX509Cert(serial, certificate, keyText);
    } else {
        session.library().ImportX509Cert(serial, certificate);
    }
    Json fields = {{"serial", serial},
                   {"imported", escrow ? "certificate-and-key" : "certificate"}};
    if (const auto facts = ReadFacts(certificate)) fields["certificate"] = ToJson(*facts);
    session.GiveDone(Described(escrow ? _("the escrowed key and its certificate are on the key")
                                      : _("the certificate is on the key"),
                               certificate),
                     fields);
    return Exit::kOk;
}

Exit ImportThem(Session& session, const Wish& wish) {
    if (wish.bundle || wish.Composed()) {
        if (!wish.keyFile.empty()) throw UsageError(_("--key does not go with a bundle"));
        if (wish.Composed() && !wish.file.empty()) {
            throw UsageError(_("FILE does not go with --sign-cert, --enc-cert and --enc-key"));
        }
        return ImportBundle(session, wish);
    }
    if (wish.keyFile == "-" && (wish.file.empty() || wish.file == "-")) {
        throw UsageError(_("certificate and key cannot both come from standard input"));
    }
    return ImportOne(session, wish);
}

}  // namespace

Action Import(const Options& options, Session& session) {
    const auto wish = std::make_shared<Wish>();
    options.Text("FILE", wish->file, "FILE",
                 N_("Certificate or bundle; standard input without it"));
    options.Text("--key", wish->keyFile, "FILE",
                 N_("Escrowed key that belongs to the certificate"));
    options.Flag("--bundle", wish->bundle, N_("FILE is a bundle"));
    options.Texts("--sign-cert", wish->signingFiles, "FILE",
                  N_("Make a bundle: signing certificate"));
    options.Texts("--enc-cert", wish->encryptionFiles, "FILE",
                  N_("Make a bundle: encryption certificate"));
    options.Texts("--enc-key", wish->keyFiles, "FILE", N_("Make a bundle: escrowed key"));
    options.Examples(
        "  ukey import sign.cer             a certificate: PEM, DER or Base64\n"
        "  ukey import enc.cer --key escrow.txt\n"
        "                                   with the escrowed key that belongs to it\n"
        "  ukey import --bundle answer.txt  SignCert(...)|EncCert(...)|EncPriKey(...)\n"
        "  ukey import --sign-cert s.cer --enc-cert e.cer --enc-key escrow.txt");
    return Does(ImportThem, session, wish);
}

}  // namespace ukey

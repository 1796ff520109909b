// import: a certificate, one with its escrowed key, or a bundle.
#include "certificate_text.h"
#include "commands.h"
#include "selectors.h"

namespace ukey {
namespace {

struct ImportWish {
    std::string file;
    std::string keyFile;
    bool bundle = false;
    std::vector<std::string> signingFiles;
    std::vector<std::string> encryptionFiles;
    std::vector<std::string> keyFiles;
    PinRule pin;

    bool Composed() const {
        return !signingFiles.empty() || !encryptionFiles.empty() || !keyFiles.empty();
    }
};

std::vector<std::string> ReadAll(const std::vector<std::string>& files) {
    std::vector<std::string> contents;
    for (const std::string& file : files) contents.push_back(OneLine(ReadInput(file)));
    return contents;
}

std::string ReadCertificate(const std::string& file) {
    std::string text = OneLine(ReadInput(file));
    if (text.empty()) throw UsageError((file == "-" ? "standard input" : file) + " is empty");
    return text;
}

std::string Described(const std::string& certificate) {
    const auto facts = ReadFacts(certificate);
    return facts ? ": " + facts->subject + ", until " + facts->notAfter.substr(0, 10) : "";
}

Exit ImportBundle(Session& session, const ImportWish& wish) {
    const std::string text = wish.Composed()
                                 ? kesta::Bundle{ReadAll(wish.signingFiles), ReadAll(wish.keyFiles),
                                                 ReadAll(wish.encryptionFiles)}
                                       .Text()
                                 : Trimmed(ReadInput(wish.file.empty() ? "-" : wish.file));
    const std::string serial = session.Serial();
    VerifyFirst(session, wish.pin, serial);
    session.library().Batch_ImportX509Cert(serial, text);
    GiveDone(session, "the bundle is on the key " + serial,
             {{"serial", serial}, {"imported", "bundle"}});
    return Exit::kOk;
}

Exit ImportOne(Session& session, const ImportWish& wish) {
    const std::string certificate = ReadCertificate(wish.file.empty() ? "-" : wish.file);
    const bool escrow = !wish.keyFile.empty();
    const std::string keyText = escrow ? OneLine(ReadInput(wish.keyFile)) : std::string();
    const std::string serial = session.Serial();
    VerifyFirst(session, wish.pin, serial);
    if (escrow) {
        session.library().ImportEncX509Cert(serial, certificate, keyText);
    } else {
        session.library().ImportX509Cert(serial, certificate);
    }
    Json fields = {{"serial", serial},
                   {"imported", escrow ? "certificate-and-key" : "certificate"}};
    if (const auto facts = ReadFacts(certificate)) fields["certificate"] = ToJson(*facts);
    GiveDone(session,
             (escrow ? "the escrowed key and its certificate are on the key"
                     : "the certificate is on the key") +
                 Described(certificate),
             std::move(fields));
    return Exit::kOk;
}

Exit Import(Session& session, const ImportWish& wish) {
    if (wish.bundle || wish.Composed()) {
        if (!wish.keyFile.empty()) throw UsageError("--key does not go with a bundle");
        if (wish.Composed() && !wish.file.empty()) {
            throw UsageError("FILE does not go with --sign-cert, --enc-cert and --enc-key");
        }
        return ImportBundle(session, wish);
    }
    if (wish.keyFile == "-" && (wish.file.empty() || wish.file == "-")) {
        throw UsageError("certificate and key cannot both come from standard input");
    }
    return ImportOne(session, wish);
}

void AddFiles(CLI::App& command, const std::string& option, std::vector<std::string>& files,
              const std::string& description) {
    command.add_option(option, files, description)
        ->type_name("FILE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

}  // namespace

void AddImportCommand(CLI::App& app, Session& session) {
    CLI::App* const command =
        AddCommand(app, session, "import", "Install certificates and escrowed keys on the key",
                   "  ukey import sign.cer             a certificate: PEM, DER or Base64\n"
                   "  ukey import enc.cer --key escrow.txt\n"
                   "                                   with the escrowed key that belongs to it\n"
                   "  ukey import --bundle answer.txt  SignCert(...)|EncCert(...)|EncPriKey(...)\n"
                   "  ukey import --sign-cert s.cer --enc-cert e.cer --enc-key escrow.txt");
    auto wish = std::make_shared<ImportWish>();
    command->add_option("file", wish->file, "Certificate or bundle; standard input without it")
        ->type_name("FILE");
    command->add_option("--key", wish->keyFile, "Escrowed key that belongs to the certificate")
        ->type_name("FILE");
    command->add_flag("--bundle", wish->bundle, "FILE is a bundle");
    AddFiles(*command, "--sign-cert", wish->signingFiles, "Make a bundle: signing certificate");
    AddFiles(*command, "--enc-cert", wish->encryptionFiles,
             "Make a bundle: encryption certificate");
    AddFiles(*command, "--enc-key", wish->keyFiles, "Make a bundle: escrowed key");
    AddPinOption(*command, wish->pin);
    command->callback(
        [&session, wish] { session.action = [&session, wish] { return Import(session, *wish); }; });
}

}  // namespace ukey

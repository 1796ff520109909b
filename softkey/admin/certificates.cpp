// The subcommands that deal in certificates and keys on their way: envelope and export-cert.
#include <openssl/evp.h>
#include <openssl/pem.h>

#include "kesta/places.h"
#include "softkey/admin/commands.h"
#include "softkey/admin/view.h"
#include "softkey/crypto/base64.h"
#include "softkey/crypto/envelope.h"
#include "softkey/store/pairs.h"

namespace softkey::admin {
namespace {

struct EnvelopeOptions {
    std::string to;
    std::string pair;
    bool withHeader = false;
    std::string out;
};

struct ExportOptions {
    std::string serial;
    std::string role = "signing";
    std::string form = "pem";
    std::string out;
};

void Seal(const EnvelopeOptions& options, const Session& session) {
    if (options.to == "-" && options.pair == "-") {
        throw InputError("--to and --pair cannot both be the standard input");
    }
    const std::string to = ReadInput(options.to);
    std::string pair = ReadInput(options.pair);
    std::string text;
    try {
        text = SealEnvelopeText(to, pair);
    } catch (const Failure& failure) {
        OPENSSL_cleanse(pair.data(), pair.size());
        if (failure.code() != kBadArgument) throw;
        throw InputError(failure.detail());
    }
    OPENSSL_cleanse(pair.data(), pair.size());
    if (options.withHeader) text = std::string(kesta::places::kKeyHeader) + text;
    if (!options.out.empty()) return WriteOutput(options.out, text + "\n");
    session.Print({{"envelope", text}}, text + "\n");
}

PairRecord PairWithCertificate(Store& store, const KeyRecord& key, Role role) {
    for (const PairRecord& pair : PairTable(store).Of(key.serial)) {
        if (pair.role == role && !pair.certificate.empty()) return pair;
    }
    throw Failure(kNoCertificate, std::string(NameOf(role)) + " certificate on " + key.serial);
}

std::string Pem(const std::string& base64) {
    std::string text = "-----BEGIN CERTIFICATE-----\n";
    for (std::size_t i = 0; i < base64.size(); i += 64) text += base64.substr(i, 64) + "\n";
    return text + "-----END CERTIFICATE-----\n";
}

void Export(const ExportOptions& options, const Session& session) {
    const std::unique_ptr<Store> store = OpenState();
    const KeyRecord key = ChooseKey(*store, options.serial);
    const Role role = options.role == "signing" ? Role::kSigning : Role::kEncryption;
    const Bytes der = PairWithCertificate(*store, key, role).certificate;
    const std::string base64 = ToBase64(der);
    if (session.json) {
        return session.Print({{"serial", key.serial}, {"role", NameOf(role)}, {"base64", base64}},
                             {});
    }
    std::string text = base64 + "\n";
    if (options.form == "pem") text = Pem(base64);
    if (options.form == "der") text.assign(der.begin(), der.end());
    WriteOutput(options.out, text);
}

}  // namespace

void AddEnvelope(CLI::App& app, Session& session) {
    const auto options = std::make_shared<EnvelopeOptions>();
    CLI::App* const command = AddCommand(
        app, "envelope",
        "Play the authority's part in escrow: seal an SM2 key pair to the public key of a "
        "request, as a text for ImportEncX509Cert",
        "openssl genpkey -algorithm SM2 -out pair.pem\n"
        "softkey envelope --to request.b64 --pair pair.pem --with-header\n"
        "softkey envelope --to temporary-public.pem --pair pair.pem --out envelope.txt");
    command
        ->add_option("--to", options->to,
                     "A certificate request (Base64 from the key, or PEM), or a public key in "
                     "PEM; of two requests joined by ; the second counts")
        ->required()
        ->type_name("FILE");
    command
        ->add_option("--pair", options->pair, "The pair to seal: a private key in PEM, unencrypted")
        ->required()
        ->type_name("FILE");
    command->add_flag("--with-header", options->withHeader,
                      "Put the authority's 80-digit header in front");
    command->add_option("--out", options->out, "Write to this file")->type_name("FILE");
    command->callback([options, &session] { Seal(*options, session); });
}

void AddExportCert(CLI::App& app, Session& session) {
    const auto options = std::make_shared<ExportOptions>();
    CLI::App* const command = AddCommand(app, "export-cert", "Print a certificate of a key",
                                         "softkey export-cert > signing.pem\n"
                                         "softkey export-cert SK0001 --role encryption\n"
                                         "softkey export-cert --form der --out signing.der");
    AddSerial(*command, options->serial);
    command->add_option("--role", options->role, "signing or encryption (default: signing)")
        ->type_name("ROLE")
        ->check(CLI::IsMember({"signing", "encryption"}));
    command->add_option("--form", options->form, "pem, der or base64 (default: pem)")
        ->type_name("FORM")
        ->check(CLI::IsMember({"pem", "der", "base64"}));
    command->add_option("--out", options->out, "Write to this file")->type_name("FILE");
    command->callback([options, &session] { Export(*options, session); });
}

}  // namespace softkey::admin

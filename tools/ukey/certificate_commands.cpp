// cert get, dn, info, delete.
#include "certificate_text.h"
#include "commands.h"
#include "selectors.h"

namespace ukey {
namespace {

struct CertificateWish {
    Pair pair;
    PinRule pin;
    bool pem = false;
};
using SharedCertificateWish = std::shared_ptr<CertificateWish>;

std::string Read(Session& session, const CertificateWish& wish) {
    return session.library().GetCert(session.Serial(), wish.pair.first(), wish.pair.second());
}

Exit Get(Session& session, const CertificateWish& wish) {
    const std::string text = Read(session, wish);
    if (wish.pem && !session.json) {
        GiveText(session, TextForm::kExact, "certificate", Armoured(OneLine(text), "CERTIFICATE"));
    } else {
        GiveText(session, TextForm::kLine, "certificate", text);
    }
    return Exit::kOk;
}

Exit ReadName(Session& session, const CertificateWish& wish) {
    GiveText(session, TextForm::kLine, "dn",
             session.library().GetCertDN(session.Serial(), wish.pair.first(), wish.pair.second()));
    return Exit::kOk;
}

// The dates come from the certificate itself; the key's own record has no public layout.
Exit Info(Session& session, const CertificateWish& wish) {
    const std::string serial = session.Serial();
    const std::string text =
        session.library().GetCert(serial, wish.pair.first(), wish.pair.second());
    const auto record = session.library().Try().GetCertInfo(serial, wish.pair.first());
    const auto facts = ReadFacts(text);
    if (session.json) {
        Json object = {{"serial", serial},
                       {"type", CertTypeWord(wish.pair.type)},
                       {"keyType", KeyTypeWord(wish.pair.algorithm)},
                       {"certificate", facts ? ToJson(*facts) : Json()}};
        if (record) object["recordLength"] = record.value().size();
        PrintJson(Success(object));
        return Exit::kOk;
    }
    Rows rows = {{"Key", Printable(serial)}, {"Pair", wish.pair.Words()}};
    if (facts) {
        for (auto& row : ToRows(*facts)) rows.push_back(std::move(row));
    } else {
        rows.emplace_back("Certificate", "cannot be read");
    }
    PrintRows(rows);
    return Exit::kOk;
}

Exit Delete(Session& session, const CertificateWish& wish) {
    const std::string serial = session.Serial();
    session.Confirm("Delete the " + wish.pair.Words() + " certificate and its temporary key from " +
                    Printable(serial) + "?");
    VerifyFirst(session, wish.pin, serial);
    session.library().DelCertAndTempKey(serial, wish.pair.first(), wish.pair.second());
    GiveDone(session, "the " + wish.pair.Words() + " certificate is deleted",
             {{"serial", serial},
              {"type", CertTypeWord(wish.pair.type)},
              {"keyType", KeyTypeWord(wish.pair.algorithm)}});
    return Exit::kOk;
}

CLI::App* AddStep(CLI::App& parent, Session& session, const std::string& name,
                  const std::string& description, const std::string& examples, const Takes& takes,
                  Exit (*step)(Session&, const CertificateWish&),
                  const SharedCertificateWish& wish) {
    CLI::App* const command = AddCommand(parent, session, name, description, examples, takes);
    AddPairOptions(*command, wish->pair);
    command->callback([&session, step, wish] {
        session.action = [&session, step, wish] { return step(session, *wish); };
    });
    return command;
}

}  // namespace

void AddCertificateCommands(CLI::App& app, Session& session) {
    CLI::App* const cert = app.add_subcommand("cert", "Read or delete a certificate on the key");
    cert->require_subcommand(1);
    auto wish = std::make_shared<CertificateWish>();
    AddStep(*cert, session, "get", "Print a certificate",
            "  ukey cert get --pem -o sign.pem\n"
            "  ukey cert get --type enc | base64 -d | openssl x509 -inform DER -noout -text",
            {true, true, true}, Get, wish)
        ->add_flag("--pem", wish->pem, "Print PEM instead of one line of Base64");
    AddStep(*cert, session, "dn", "Print a certificate's distinguished name",
            "  ukey cert dn --type enc", {true, true, true}, ReadName, wish);
    AddStep(*cert, session, "info", "Show whose a certificate is and how long it is valid",
            "  ukey cert info\n  ukey cert info --json | jq .certificate.daysLeft", {}, Info, wish);
    CLI::App* const remove =
        AddStep(*cert, session, "delete", "Delete a certificate and its temporary key",
                "  ukey cert delete --type enc      asks before\n"
                "  ukey cert delete --type enc --yes",
                {true, true, false, true}, Delete, wish);
    AddPinOption(*remove, wish->pin);
}

}  // namespace ukey

#include "kit/certificate.h"
#include "selectors.h"

namespace ukey {
namespace {

// The dates come from the certificate itself; the key's own record has no public layout.
Exit Show(Session& session, const Pair& pair) {
    const std::string serial = session.Serial();
    const std::string text = session.library().GetCert(serial, pair.first(), pair.second());
    const auto record = session.library().Try().GetCertInfo(serial, pair.first());
    const auto facts = ReadFacts(text);
    Json object = {{"serial", serial},
                   {"type", CertTypeWord(pair.type)},
                   {"keyType", KeyTypeWord(pair.algorithm)},
                   {"certificate", facts ? ToJson(*facts) : Json()}};
    if (record) object["recordLength"] = record.value().size();
    Rows rows = {{_("Key"), Printable(serial)}, {_("Pair"), pair.Words()}};
    if (facts) {
        for (auto& row : ToRows(*facts)) rows.push_back(std::move(row));
    } else {
        rows.emplace_back(_("Certificate"), _("cannot be read"));
    }
    session.GiveRows(rows, object);
    return Exit::kOk;
}

}  // namespace

Action CertInfo(const Options& options, Session& session) {
    const auto pair = std::make_shared<Pair>();
    AddPairOptions(options, *pair);
    options.Examples("  ukey cert info\n  ukey cert info --json | jq .certificate.daysLeft");
    return Does(Show, session, pair);
}

}  // namespace ukey

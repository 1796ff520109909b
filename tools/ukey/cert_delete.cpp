#include "selectors.h"

namespace ukey {
namespace {

Exit Delete(Session& session, const Pair& pair) {
    const std::string serial = session.Serial();
    session.Confirm(Fill(_("Delete the {1} certificate and its temporary key from {2}?"),
                         {pair.Words(), serial}));
    if (!session.skipPin) session.VerifyPin(serial);
    session.library().DelCertAndTempKey(serial, pair.first(), pair.second());
    session.GiveDone(Fill(_("the {1} certificate is deleted"), {pair.Words()}),
                     {{"serial", serial},
                      {"type", CertTypeWord(pair.type)},
                      {"keyType", KeyTypeWord(pair.algorithm)}});
    return Exit::kOk;
}

}  // namespace

Action CertDelete(const Options& options, Session& session) {
    const auto pair = std::make_shared<Pair>();
    AddPairOptions(options, *pair);
    options.Examples(
        "  ukey cert delete --type enc      asks before\n"
        "  ukey cert delete --type enc --yes");
    return Does(Delete, session, pair);
}

}  // namespace ukey

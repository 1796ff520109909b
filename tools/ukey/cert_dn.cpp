#include "selectors.h"

namespace ukey {
namespace {

Exit ReadName(Session& session, const Pair& pair) {
    session.GiveText({TextForm::kLine, "dn", N_("distinguished name"),
                      session.library().GetCertDN(session.Serial(), pair.first(), pair.second())});
    return Exit::kOk;
}

}  // namespace

Action CertDn(const Options& options, Session& session) {
    const auto pair = std::make_shared<Pair>();
    AddPairOptions(options, *pair);
    options.Examples("  ukey cert dn --type enc");
    return Does(ReadName, session, pair);
}

}  // namespace ukey

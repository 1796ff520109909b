#include "pin_record.h"
#include "session.h"

namespace ukey {
namespace {

Exit InitialiseKey(Session& session) {
    const std::string serial = session.Serial();
    session.Confirm(Fill(
        _("Initialise the key {1}? Its key pairs, certificates and data will be lost."), {serial}));
    const auto& library = session.library();
    TellTries(library, serial, [&] { library.InitUKey(serial); });
    session.GiveDone(Fill(_("the key {1} is initialised"), {serial}), {{"serial", serial}});
    return Exit::kOk;
}

}  // namespace

Action Initialise(const Options& options, Session& session) {
    options.Examples(
        "  ukey init                asks before\n"
        "  ukey init --serial K123 --yes");
    return [&session] { return InitialiseKey(session); };
}

}  // namespace ukey

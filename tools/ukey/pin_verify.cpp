#include "session.h"

namespace ukey {

Action PinVerify(const Options& options, Session& session) {
    options.Examples("  ukey pin verify          the token library asks for the PIN itself");
    return [&session] {
        const std::string serial = session.Serial();
        session.VerifyPin(serial);
        session.GiveDone(_("the PIN is right"), {{"serial", serial}});
        return Exit::kOk;
    };
}

}  // namespace ukey

#include "session.h"

namespace ukey {

Action PinForget(const Options& options, Session& session) {
    options.Examples("  ukey pin forget");
    return [&session] {
        session.library().RemovePinCache();
        session.GiveDone(_("no PIN is cached"));
        return Exit::kOk;
    };
}

}  // namespace ukey

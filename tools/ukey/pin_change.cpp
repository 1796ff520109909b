#include "pin_record.h"
#include "session.h"

namespace ukey {

Action PinChange(const Options& options, Session& session) {
    options.Examples("  ukey pin change\n  ukey pin change --serial K123");
    return [&session] {
        const std::string serial = session.Serial();
        const auto& library = session.library();
        TellTries(library, serial, [&] { library.ChangePin(serial); });
        session.GiveDone(_("the PIN is changed"), {{"serial", serial}});
        return Exit::kOk;
    };
}

}  // namespace ukey

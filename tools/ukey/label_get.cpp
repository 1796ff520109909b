#include "session.h"

namespace ukey {

Action LabelGet(const Options& options, Session& session) {
    options.Examples("  ukey label get");
    return [&session] {
        const std::string serial = session.Serial();
        session.GiveText(
            {TextForm::kLine, "label", N_("label"), session.library().GetLabel(serial)},
            {{"serial", serial}});
        return Exit::kOk;
    };
}

}  // namespace ukey

#include "session.h"

namespace ukey {
namespace {

Exit Set(Session& session, const std::string& label) {
    const std::string serial = session.UnlockedSerial();
    session.library().SetLabel(serial, label);
    session.GiveDone(Fill(_("the label is \"{1}\""), {label}),
                     {{"serial", serial}, {"label", label}});
    return Exit::kOk;
}

}  // namespace

Action LabelSet(const Options& options, Session& session) {
    const auto label = std::make_shared<std::string>();
    options.Text("LABEL", *label, "LABEL", N_("The new label")).Required();
    options.Examples("  ukey label set 'Accounts, second floor'");
    return Does(Set, session, label);
}

}  // namespace ukey

#include "session.h"

namespace ukey {
namespace {

Exit Check(Session& session) {
    const auto checked = session.library().Try().CheckDriverIntegrity(1);
    if (!checked) {
        // The code alone would say that something is not supported.
        kesta::Failure failure = checked.failure();
        if (failure.code == KESTA_UNSUPPORTED) {
            failure.message = _("the install directory cannot be listed; ask `ukey doctor`");
        }
        throw kesta::Error(failure);
    }
    session.GiveDone(_("the install directory can be listed; `ukey doctor` looks at the files"));
    return Exit::kOk;
}

}  // namespace

Action CheckInstall(const Options& options, Session& session) {
    options.Examples(
        "  ukey check-install       the library's own check: it compares no files\n"
        "  ukey doctor              looks at each file and says what is wrong");
    return [&session] { return Check(session); };
}

}  // namespace ukey

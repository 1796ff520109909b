#include "softkey/store/home.h"
#include "state.h"

namespace softkey::command {

Action PathCommand(const Options& options, Console& console) {
    options.Examples("  softkey path\n  KESTA_SOFTKEY_HOME=/tmp/keys softkey path");
    return [&console] {
        const std::string home = StateHome();
        console.GiveText({TextForm::kLine, "path", N_("path"), home});
        return kExitDone;
    };
}

}  // namespace softkey::command

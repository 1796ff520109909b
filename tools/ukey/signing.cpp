#include "signing.h"

namespace ukey {

void AddWarning(const Options& options, std::optional<std::string>& warning, const char* sentence) {
    options.Read(
        "-w,--warning", [&warning](const std::string& text) { warning = text; }, "TEXT", sentence);
}

ButtonHint::ButtonHint(const Session& session, const std::string& warning) {
    if (session.json) return;
    hint_.emplace(
        Fill(_("The key shows \"{1}\". Press its button, or refuse there."), {Printable(warning)}));
}

}  // namespace ukey

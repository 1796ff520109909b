#include "session.h"

namespace ukey {
namespace {

// The library hands the two arguments on in reverse; the token library takes the key first. No key
// need be there: the messages that say so have a language too.
Exit Set(Session& session, const std::string& language) {
    session.library().SetLanguage(language, session.givenSerial);
    session.GiveDone(Fill(_("the token library knows the language {1}; it holds for this command "
                            "alone, unless the "
                            "token library keeps it"),
                          {language}),
                     {{"language", language}});
    return Exit::kOk;
}

}  // namespace

Action Language(const Options& options, Session& session) {
    const auto language = std::make_shared<std::string>();
    options.Text("LANGUAGE", *language, "LANGUAGE", N_("A name that the token library knows"))
        .Required();
    options.Examples("  ukey language zh_CN");
    return Does(Set, session, language);
}

}  // namespace ukey

#include "session.h"

namespace ukey {
namespace {

// The library hands the two arguments on in reverse; the token library takes the key first. No key
// need be there: the messages that say so have a charset too.
Exit Set(Session& session, const std::string& charset) {
    session.library().SetCharset(charset, session.givenSerial);
    session.GiveDone(Fill(_("the token library knows the charset {1}; it holds for this command "
                            "alone, unless the "
                            "token library keeps it"),
                          {charset}),
                     {{"charset", charset}});
    return Exit::kOk;
}

}  // namespace

Action Charset(const Options& options, Session& session) {
    const auto charset = std::make_shared<std::string>();
    options.Text("CHARSET", *charset, "CHARSET", N_("A name that the token library knows"))
        .Required();
    options.Examples("  ukey charset GB18030");
    return Does(Set, session, charset);
}

}  // namespace ukey

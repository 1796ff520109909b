#include "pin_record.h"
#include "session.h"

namespace ukey {
namespace {

struct Wish {
    bool on = false;
    bool off = false;
};

Exit Cache(Session& session, const Wish& wish) {
    const std::string serial = session.Serial();
    const auto& library = session.library();
    if (wish.on || wish.off) {
        library.SetCachePinFlag(serial, wish.on ? 1 : 0);
        session.GiveDone(wish.on ? _("PIN caching is on") : _("PIN caching is off"),
                         {{"serial", serial}, {"caching", wish.on}});
        return Exit::kOk;
    }
    TellTries(library, serial, [&] { library.TestVerifyAndCachePin(serial); });
    session.GiveDone(_("the PIN is right and cached"), {{"serial", serial}});
    return Exit::kOk;
}

}  // namespace

Action PinCache(const Options& options, Session& session) {
    const auto wish = std::make_shared<Wish>();
    const Option on = options.Flag("--on", wish->on, N_("Switch caching on, ask for no PIN"));
    options.Flag("--off", wish->off, N_("Switch caching off")).Excludes(on);
    options.Examples(
        "  ukey pin cache           a cached PIN ends with the process that cached it,\n"
        "                           unless the token library keeps it elsewhere\n"
        "  ukey pin cache --off     switch caching off");
    return Does(Cache, session, wish);
}

}  // namespace ukey

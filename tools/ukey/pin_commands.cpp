// pin verify, change, info, cache, forget; init.
#include <cstdio>

#include "commands.h"

namespace ukey {
namespace {

using PinStep = Exit (*)(Session&);

Exit VerifyPin(Session& session) {
    const std::string serial = session.Serial();
    session.library().VerifyPIN(serial);
    GiveDone(session, "the PIN is right", {{"serial", serial}});
    return Exit::kOk;
}

Exit ChangePin(Session& session) {
    const std::string serial = session.Serial();
    session.library().ChangePin(serial);
    GiveDone(session, "the PIN is changed", {{"serial", serial}});
    return Exit::kOk;
}

std::string Hex(const kesta::Bytes& bytes) {
    std::string text;
    for (const unsigned char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(byte));
        text += digits;
    }
    return text;
}

Exit PinInfo(Session& session) {
    const std::string serial = session.Serial();
    const std::string record = Hex(session.library().GetPinInfo(serial));
    if (session.json) {
        PrintJson(Success({{"serial", serial}, {"record", record}}));
    } else {
        PrintRows({{"Key", Printable(serial)}, {"PIN record", record}});
    }
    return Exit::kOk;
}

struct CacheWish {
    bool on = false;
    bool off = false;
};

Exit CachePin(Session& session, const CacheWish& wish) {
    const std::string serial = session.Serial();
    if (wish.on || wish.off) {
        session.library().SetCachePinFlag(serial, wish.on ? 1 : 0);
        GiveDone(session, wish.on ? "PIN caching is on" : "PIN caching is off",
                 {{"serial", serial}, {"caching", wish.on}});
        return Exit::kOk;
    }
    session.library().TestVerifyAndCachePin(serial);
    GiveDone(session, "the PIN is right and cached", {{"serial", serial}});
    return Exit::kOk;
}

Exit ForgetPin(Session& session) {
    session.library().RemovePinCache();
    GiveDone(session, "no PIN is cached");
    return Exit::kOk;
}

Exit InitialiseKey(Session& session) {
    const std::string serial = session.Serial();
    session.Confirm("Initialise the key " + Printable(serial) +
                    "? Its key pairs, certificates and data will be lost.");
    session.library().InitUKey(serial);
    GiveDone(session, "the key " + serial + " is initialised", {{"serial", serial}});
    return Exit::kOk;
}

void AddStep(CLI::App& parent, Session& session, const std::string& name,
             const std::string& description, const std::string& examples, const Takes& takes,
             PinStep step) {
    CLI::App* const command = AddCommand(parent, session, name, description, examples, takes);
    command->callback(
        [&session, step] { session.action = [&session, step] { return step(session); }; });
}

void AddCache(CLI::App& pin, Session& session) {
    CLI::App* const cache =
        AddCommand(pin, session, "cache", "Verify the PIN and let the token library keep it",
                   "  ukey pin cache           a cached PIN ends with the process that cached it,\n"
                   "                           unless the token library keeps it elsewhere\n"
                   "  ukey pin cache --off     switch caching off");
    auto wish = std::make_shared<CacheWish>();
    CLI::Option* const on = cache->add_flag("--on", wish->on, "Switch caching on, ask for no PIN");
    cache->add_flag("--off", wish->off, "Switch caching off")->excludes(on);
    cache->callback([&session, wish] {
        session.action = [&session, wish] { return CachePin(session, *wish); };
    });
}

}  // namespace

void AddPinCommands(CLI::App& app, Session& session) {
    CLI::App* const pin = app.add_subcommand("pin", "Verify, change or forget the PIN");
    pin->require_subcommand(1);
    pin->footer("The token library asks for PINs itself; this command never sees one.");
    AddStep(*pin, session, "verify", "Ask for the PIN and check it", "  ukey pin verify", {},
            VerifyPin);
    AddStep(*pin, session, "change", "Ask for the PIN and a new one",
            "  ukey pin change\n  ukey pin change --serial K123", {}, ChangePin);
    AddStep(*pin, session, "info", "Show the PIN information record, in hexadecimal",
            "  ukey pin info            eight bytes; their meaning is the token library's", {},
            PinInfo);
    AddCache(*pin, session);
    AddStep(*pin, session, "forget", "Make the token library forget a cached PIN",
            "  ukey pin forget", {true, false}, ForgetPin);
    AddStep(app, session, "init", "Initialise the key: it loses everything it holds",
            "  ukey init                asks before\n"
            "  ukey init --serial K123 --yes",
            {true, true, false, true}, InitialiseKey);
}

}  // namespace ukey

#include <cstdio>

#include "pin_record.h"
#include "session.h"

namespace ukey {
namespace {

std::string Hex(const kesta::Bytes& bytes) {
    std::string text;
    for (const unsigned char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(byte));
        text += digits;
    }
    return text;
}

void AddWords(const PinState& state, Rows& rows, Json& object) {
    rows.emplace_back(_("Tries"), TriesText(state));
    rows.emplace_back(_("Cached"), state.caching ? _("yes") : _("no"));
    rows.emplace_back(_("Length"),
                      Fill(_("{1} to {2} characters"),
                           {std::to_string(state.shortest), std::to_string(state.longest)}));
    object["triesLeft"] = state.triesLeft;
    object["maxTries"] = state.maxTries;
    object["locked"] = state.locked;
    object["caching"] = state.caching;
    object["minLength"] = state.shortest;
    object["maxLength"] = state.longest;
}

Exit Show(Session& session) {
    const std::string serial = session.Serial();
    const kesta::Bytes bytes = session.library().GetPinInfo(serial);
    Json object = {{"serial", serial}, {"record", Hex(bytes)}};
    Rows rows = {{_("Key"), Printable(serial)}};
    const auto state = ReadPinState(session.library(), bytes);
    if (state) AddWords(*state, rows, object);
    rows.emplace_back(_("PIN record"), Hex(bytes));
    if (!state) rows.emplace_back("", _("its meaning is the token library's"));
    session.GiveRows(rows, object);
    return Exit::kOk;
}

}  // namespace

Action PinInfo(const Options& options, Session& session) {
    options.Examples(
        "  ukey pin info            in words with the software key; the eight bytes of other\n"
        "                           keys mean what their token library says");
    return [&session] { return Show(session); };
}

}  // namespace ukey

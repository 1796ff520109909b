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

void AddTries(const kesta::Tries& tries, Rows& rows, Json& object) {
    rows.emplace_back(_("Tries"), TriesText(tries));
    object["triesLeft"] = tries.left;
    object["maxTries"] = tries.most;
    object["locked"] = tries.locked;
}

// What the software key tells beside the tries: caching at 4, shortest and longest PIN behind it.
void AddRest(const kesta::Bytes& record, Rows& rows, Json& object) {
    const bool caching = record[4] != 0;
    rows.emplace_back(_("Cached"), caching ? _("yes") : _("no"));
    rows.emplace_back(_("Length"), Fill(_("{1} to {2} characters"),
                                        {std::to_string(record[5]), std::to_string(record[6])}));
    object["caching"] = caching;
    object["minLength"] = record[5];
    object["maxLength"] = record[6];
}

Exit Show(Session& session) {
    const std::string serial = session.Serial();
    const kesta::Bytes bytes = session.library().GetPinInfo(serial);
    Json object = {{"serial", serial}, {"record", Hex(bytes)}};
    Rows rows = {{_("Key"), Printable(serial)}};
    const auto tries = ReadTries(session.library(), bytes);
    const bool whole = tries && bytes.size() == 8 && IsSoftwareKey(session.library());
    if (tries) AddTries(*tries, rows, object);
    if (whole) AddRest(bytes, rows, object);
    rows.emplace_back(_("PIN record"), Hex(bytes));
    if (!tries) rows.emplace_back("", _("its meaning is the token library's"));
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

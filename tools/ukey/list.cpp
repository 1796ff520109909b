#include <dlfcn.h>

#include "kesta/event_library.h"
#include "kesta/places.h"
#include "session.h"

namespace ukey {
namespace {

struct Slot {
    std::uint32_t number = 0;
    std::string mediaId;
};

[[noreturn]] void Fail(const char* operation, const char* message, int code) {
    throw kesta::Error({code, operation, message, kesta::Failure::Origin::kLibrary});
}

template <class Function>
Function* EntryPoint(void* library, const char* name) {
    auto* const found = reinterpret_cast<Function*>(::dlsym(library, name));
    if (found == nullptr)
        Fail(name, _("the event library lacks this entry point"), KESTA_NOT_BOUND);
    return found;
}

std::string MediaIdOf(void* library, std::uint32_t slot) {
    using GetDeviceInfo = kesta::event::ValtoT_GetDeviceInfo;
    _S_DEV_CONFIG record{};
    const int code = EntryPoint<GetDeviceInfo>(library, "ValtoT_GetDeviceInfo")(slot, 0, &record);
    if (code != 0) return {};
    const std::string_view field(record.szMediaId, sizeof record.szMediaId);
    return std::string(field.substr(0, field.find('\0')));
}

// The library has no function for it, but its event library has been loaded with it.
std::vector<Slot> Slots() {
    void* const library = ::dlopen(KESTA_EVENT_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    if (library == nullptr) {
        Fail("ValtoT_GetSlotList", _("the event library is not loaded"), KESTA_NOT_BOUND);
    }
    std::uint32_t numbers[64] = {};
    auto count = static_cast<std::uint32_t>(std::size(numbers));
    const int code = EntryPoint<kesta::event::ValtoT_GetSlotList>(library, "ValtoT_GetSlotList")(
        1, numbers, &count);
    if (code != 0) Fail("ValtoT_GetSlotList", _("the slots cannot be listed"), code);
    std::vector<Slot> slots;
    for (std::uint32_t i = 0; i < count && i < std::size(numbers); ++i) {
        slots.push_back({numbers[i], MediaIdOf(library, numbers[i])});
    }
    return slots;
}

Exit ListKeys(Session& session) {
    const auto& library = session.library();
    const std::vector<Slot> slots = Slots();
    // The library names a key only where it is the one.
    const std::string serial = slots.size() == 1 ? library.GetPrintNumber() : "";
    Json keys = Json::array();
    Table table;
    table.Row({_("SLOT"), _("MEDIA ID"), _("SERIAL")});
    for (const Slot& slot : slots) {
        Json key = {{"slot", slot.number}, {"mediaId", slot.mediaId}};
        if (!serial.empty()) key["serial"] = serial;
        keys.push_back(key);
        table.Row({std::to_string(slot.number),
                   slot.mediaId.empty() ? _("not known") : Printable(slot.mediaId),
                   serial.empty() ? _("not known") : Printable(serial)});
    }
    if (session.json) {
        PrintJson(Success({{"keys", keys}}));
        return Exit::kOk;
    }
    Say(slots.empty() ? std::string(_("no keys")) + "\n" : table.Text());
    if (slots.size() > 1) {
        PrintLine(
            _("Of several keys the interface tells no serial numbers; they stand on the keys."));
    }
    return Exit::kOk;
}

}  // namespace

Action List(const Options& options, Session& session) {
    options.Examples(
        "  ukey list                        slots and media ids; the serial number of a lone key\n"
        "  ukey list --json | jq '.keys | length'");
    return [&session] { return ListKeys(session); };
}

}  // namespace ukey

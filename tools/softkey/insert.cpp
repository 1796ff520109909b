#include "move.h"

namespace softkey::command {
namespace {

struct Wish {
    std::string serial;
    std::optional<std::uint32_t> slot;
};

Exit PutIn(Console& console, const Wish& wish) {
    return Move(console, wish.serial, true, wish.slot);
}

}  // namespace

Action InsertCommand(const Options& options, Console& console) {
    const auto wish = std::make_shared<Wish>();
    AddSerial(options, wish->serial);
    options.Number("--slot", wish->slot, 0, 0xFFFFFFFF, "N",
                   N_("Put it into another slot; a key that is out and had it makes room"));
    options.Examples(
        "  softkey insert\n"
        "  softkey insert SK0001 --slot 4\n"
        "  softkey remove SK0001 && softkey insert SK0002 --slot 1\n"
        "                           another key in the same slot");
    return Does(PutIn, console, wish);
}

}  // namespace softkey::command

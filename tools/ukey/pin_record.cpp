#include "pin_record.h"

#include "exit_codes.h"
#include "kit/errors.h"
#include "kit/language.h"
#include "kit/text.h"

namespace ukey {

using kit::_;
using kit::Fill;

bool IsSoftwareKey(const kesta::Library& library) {
    constexpr int kPinWrong = 0x5B21;
    const auto text = library.Try().GetErrorMsg(kPinWrong);
    if (!text.ok()) return false;
    const std::string told = kit::ToUtf8(text.value());
    return told == "the PIN is wrong" || told == "PIN 码错误";
}

std::optional<PinState> ReadPinState(const kesta::Library& library, const kesta::Bytes& record) {
    if (record.size() != 8 || !IsSoftwareKey(library)) return std::nullopt;
    return PinState{record[0],      record[1], record[2] != 0, record[3] != 0,
                    record[4] != 0, record[5], record[6]};
}

std::string TriesText(const PinState& state) {
    if (state.locked || state.triesLeft == 0) return _("the PIN is locked, no try is left");
    return Fill(
        state.triesLeft == 1 ? _("{1} of {2} tries is left") : _("{1} of {2} tries are left"),
        {std::to_string(state.triesLeft), std::to_string(state.maxTries)});
}

void TellTries(const kesta::Library& library, const std::string& serial,
               const std::function<void()>& step) {
    try {
        step();
    } catch (const kesta::Error& error) {
        const kesta::Failure& failure = error.failure();
        if (KindOf(failure) != Exit::kPin) throw;
        const auto record = library.Try().GetPinInfo(serial);
        const auto state = record ? ReadPinState(library, record.value()) : std::nullopt;
        if (!state) throw;
        throw kit::Failed({static_cast<int>(Exit::kPin), failure.message, TriesText(*state),
                           failure.operation, failure.code});
    }
}

}  // namespace ukey

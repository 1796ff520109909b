#include "pin_record.h"

#include "exit_codes.h"
#include "kit/errors.h"
#include "kit/language.h"
#include "kit/text.h"

namespace ukey {

using kit::_;
using kit::Fill;

namespace {

constexpr int kPinWrong = 0x5B21;  // of the software key

}  // namespace

bool IsSoftwareKey(const kesta::Library& library) {
    const auto text = library.Try().GetErrorMsg(kPinWrong);
    if (!text.ok()) return false;
    const std::string told = kit::ToUtf8(text.value());
    return told == "the PIN is wrong" || told == "PIN 码错误";
}

std::optional<kesta::Tries> ReadTries(const kesta::Library& library, const kesta::Bytes& record) {
    const auto table = kesta::CodeTable::InUse();
    const bool ofSoftwareKey = table->KindOf(kPinWrong) == kesta::Kind::kPinWrong;
    if (ofSoftwareKey && !IsSoftwareKey(library)) return std::nullopt;
    return kesta::TriesOf(record, table->pinRecord);
}

std::string TriesText(const kesta::Tries& tries) {
    if (tries.locked) return _("the PIN is locked, no try is left");
    return Fill(tries.left == 1 ? _("{1} of {2} tries is left") : _("{1} of {2} tries are left"),
                {std::to_string(tries.left), std::to_string(tries.most)});
}

void TellTries(const kesta::Library& library, const std::string& serial,
               const std::function<void()>& step) {
    try {
        step();
    } catch (const kesta::Error& error) {
        const kesta::Failure& failure = error.failure();
        if (KindOf(failure) != Exit::kPin) throw;
        const auto record = library.Try().GetPinInfo(serial);
        const auto tries = record ? ReadTries(library, record.value()) : std::nullopt;
        if (!tries) throw;
        throw kit::Failed({static_cast<int>(Exit::kPin), failure.message, TriesText(*tries),
                           failure.operation, failure.code});
    }
}

}  // namespace ukey

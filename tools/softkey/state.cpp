#include "state.h"

#include <unistd.h>

#include <vector>

#include "kit/language.h"
#include "softkey/store/home.h"
#include "softkey/store/keys.h"

namespace softkey::command {

Exit ExitFor(Code code) {
    switch (code) {
        case kBadArgument:
        case kTooLong:
        case kSeveralKeys:
            return kExitUsage;
        case kKeyAbsent:
        case kNoKeyPair:
        case kNoCertificate:
        case kDataNotFound:
            return kExitNotFound;
        case kPinWrong:
        case kPinLocked:
        case kPinCancelled:
        case kPinLength:
        case kPinRequired:
        case kPinMismatch:
            return kExitPin;
        case kStateDamaged:
            return kExitDamaged;
        case kStateFull:
        case kStateBusy:
        case kStateUnreachable:
            return kExitState;
        default:
            return kExitFailed;
    }
}

Language PersonsLanguage() {
    return SpeaksChinese() ? Language::kChinese : Language::kEnglish;
}

void AddSerial(const Options& options, std::string& serial) {
    options.Text("SERIAL", serial, "SERIAL",
                 N_("Serial number of the key; may be left out when there is only one"));
}

std::unique_ptr<Store> OpenState() {
    const std::string home = StateHome();
    std::unique_ptr<Store> store = Store::OpenExisting(home);
    if (!store) throw Failure(kKeyAbsent, Fill(_("no key was created yet in {1}"), {home}));
    return store;
}

KeyRecord ChooseKey(Store& store, const std::string& serial) {
    if (!serial.empty()) {
        const auto found = KeyTable(store).Find(serial);
        if (!found) throw Failure(kKeyAbsent, serial);
        return *found;
    }
    const std::vector<KeyRecord> keys = KeyTable(store).All();
    if (keys.empty())
        throw Failure(kKeyAbsent, Fill(_("no key was created yet in {1}"), {store.home()}));
    if (keys.size() == 1) return keys[0];
    std::string names;
    for (const KeyRecord& key : keys) names += (names.empty() ? "" : ", ") + key.serial;
    throw Failure(kSeveralKeys, names);
}

void ConfirmLoss(const Console& console, const std::string& question) {
    if (::isatty(STDIN_FILENO) == 1) console.Confirm(question);
}

}  // namespace softkey::command

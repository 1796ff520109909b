#include <algorithm>
#include <array>
#include <ctime>

#include "pin_source.h"
#include "softkey/store/home.h"
#include "softkey/store/key_admin.h"
#include "view.h"

namespace softkey::command {
namespace {

struct Wish {
    NewKey key;
    bool removed = false;
    bool locked = false;
    bool certificates = false;
    std::optional<std::time_t> notBefore;
    std::optional<std::time_t> notAfter;
    PinSource pin;
};

constexpr std::time_t kDay = 24 * 3600;
constexpr std::time_t kYear = 365 * kDay;

// Each day and second must be there: 2025-02-30 is none, though the C library counts on.
std::optional<std::time_t> TimeOf(const std::string& text, const char* form) {
    std::tm parts{};
    const char* const end = strptime(text.c_str(), form, &parts);
    if (end == nullptr || *end != '\0') return std::nullopt;
    const std::time_t time = timegm(&parts);
    std::array<char, 32> again{};
    gmtime_r(&time, &parts);
    std::strftime(again.data(), again.size(), form, &parts);
    return text == again.data() ? std::optional<std::time_t>(time) : std::nullopt;
}

void AddDate(const Options& options, const char* name, std::optional<std::time_t>& date,
             const char* sentence) {
    const auto read = [name, &date](const std::string& text) {
        date = TimeOf(text, "%Y-%m-%d");
        if (!date) date = TimeOf(text, "%Y-%m-%dT%H:%M:%SZ");
        if (!date) {
            throw UsageError(
                Fill(_("{1}: it takes a date such as 2025-07-31 or 2025-07-31T12:00:00Z"), {name}));
        }
    };
    options.Read(name, read, "DATE", sentence);
}

// What is not given makes certificates that last for a year, and that hold now if they can.
std::optional<Validity> ValidityOf(const Wish& wish) {
    if (!wish.certificates && !wish.notBefore && !wish.notAfter) return std::nullopt;
    const std::time_t now = std::time(nullptr);
    Validity validity{};
    const std::time_t natural =
        wish.notAfter ? std::min(now - kDay, *wish.notAfter - kYear) : now - kDay;
    validity.notBefore = wish.notBefore.value_or(natural);
    validity.notAfter = wish.notAfter.value_or(validity.notBefore + kYear);
    if (validity.notAfter < validity.notBefore) {
        throw UsageError(_("--not-after lies before --not-before"));
    }
    return validity;
}

Exit Make(Console& console, const Wish& wish) {
    NewKey wanted = wish.key;
    wanted.inserted = !wish.removed;
    if (wish.locked) wanted.triesLeft = 0;
    wanted.certificates = ValidityOf(wish);
    PinContext context;
    context.serial = wanted.serial;
    context.label = wanted.label;
    context.language = PersonsLanguage();
    SecretText pin;
    ChooseNewPin(wish.pin, context, NewPinKind::kFirst, pin);
    const std::unique_ptr<Store> store = Store::Open(StateHome());
    const KeyRecord key = CreateKey(*store, wanted, pin.View());
    console.GiveDone(Fill(key.inserted ? _("created {1} in slot {2}")
                                       : _("created {1} in slot {2}, not inserted"),
                          {key.serial, std::to_string(key.slot)}),
                     KeyJson(key));
    return kExitDone;
}

}  // namespace

Action CreateCommand(const Options& options, Console& console) {
    const auto wish = std::make_shared<Wish>();
    options.Text("--serial", wish->key.serial, "TEXT", N_("Serial number (default: made up)"));
    options.Text("--label", wish->key.label, "TEXT", N_("Label (default: the serial number)"));
    options.Text("--media-id", wish->key.mediaId, "TEXT", N_("Media id (default: made up)"));
    options.Number("--slot", wish->key.slot, 0, 0xFFFFFFFF, "N",
                   N_("Slot (default: the lowest free one, from 1)"));
    options.Flag("--removed", wish->removed, N_("Do not insert the key"));
    const Option tries = options.Number("--tries-left", wish->key.triesLeft, 1, kMaxTries, "N",
                                        N_("PIN tries that are left (default: all 6)"));
    options.Flag("--locked", wish->locked, N_("Make a key whose PIN is locked")).Excludes(tries);
    options.Flag("--certificates", wish->certificates,
                 N_("With a signing and an encryption pair and their certificates, for tests"));
    AddDate(options, "--not-before", wish->notBefore,
            N_("The certificates hold from this date, UTC (default: yesterday)"));
    AddDate(options, "--not-after", wish->notAfter,
            N_("The certificates hold until this date, UTC (default: a year later)"));
    AddPinOptions(options, wish->pin);
    options.Examples(
        "  softkey create\n"
        "  softkey create --serial SK0001 --label \"Li Wei\" --slot 2\n"
        "  softkey create --pin-file pin.txt --removed\n"
        "  softkey create --tries-left 1\n"
        "  softkey create --not-after 2020-12-31    its certificates have expired\n"
        "  pass show softkey | softkey create --pin-stdin --json\n"
        "                           the PIN comes from $KESTA_SOFTKEY_PIN, a file, the standard\n"
        "                           input or pinentry, never from the command line");
    return Does(Make, console, wish);
}

}  // namespace softkey::command

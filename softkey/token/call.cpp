#include "softkey/token/call.h"

#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <thread>

#include "softkey/misbehaviour/occupation.h"
#include "softkey/misbehaviour/spoiled_output.h"
#include "softkey/store/home.h"
#include "softkey/store/keys.h"
#include "softkey/token/device.h"
#include "softkey/token/fork_gate.h"
#include "softkey/token/guarded.h"
#include "softkey/token/look_request.h"

namespace softkey {
namespace {

using Removal = Misbehaviour::Removal;

using Clock = std::chrono::steady_clock;

thread_local Clock::time_point lastLook;  // of this thread, a moment ago

bool GoesOn(const EntryPoint& entry) {
    constexpr std::chrono::microseconds kAtOnce{50};
    return entry.goesOn && Clock::now() - lastLook < kAtOnce && !IsNewChild();
}

// What every call begins with. It also drops the secrets of keys that are gone. A state that cannot
// be looked at is for those to tell who need it, and they look again. False when no plan of
// misbehaviour is in force.
bool Look(const EntryPoint& entry) noexcept {
    try {
        if (GoesOn(entry)) return LockedDevice().IsKnownToMisbehave();
        LockedDevice device(LockedDevice::Look::kFresh);
        const bool misbehaving = device.IsMisbehaving();
        lastLook = Clock::now();
        return misbehaving;
    } catch (...) {
        SuspectOpenssl(kNoMemory);
        return true;
    }
}

std::optional<KeyRecord> KeyIfThere(const char* serial) {
    try {
        return KeyOf(serial);
    } catch (const Failure&) {
        return std::nullopt;
    }
}

// The serial number of the key that a call means, as far as there is one.
std::string Meant(const char* serial) {
    const std::optional<KeyRecord> key = KeyIfThere(serial);
    if (key) return key->serial;
    return serial != nullptr ? std::string(serial) : std::string();
}

// The slot that the plan names, unless another key is in it, or a device that is none.
std::optional<std::uint32_t> FreeSlot(KeyTable& keys, const Misbehaviour& plan) {
    for (const KeyRecord& key : keys.All()) {
        if (key.inserted && plan.slot == key.slot) return std::nullopt;
    }
    for (const std::uint32_t foreign : ForeignSlots(StateHome())) {
        if (plan.slot == foreign) return std::nullopt;
    }
    return plan.slot;
}

void PullOut(const std::string& serial, const Misbehaviour& plan) {
    LockedDevice device;
    {
        // One change: nobody takes the slot before the key is back.
        Transaction change(device.store());
        KeyTable keys(device.store());
        keys.SetInserted(serial, false);
        if (plan.removal == Removal::kMoment) keys.SetInserted(serial, true, FreeSlot(keys, plan));
        change.Commit();
    }
    device.Refresh();
}

void RequireStillThere(const KeyRecord& key) {
    const LockedDevice device(LockedDevice::Look::kFresh);
    device.RequireStillThere(key);
}

Misbehaviour PlanFor(const EntryPoint& entry) noexcept {
    try {
        return NextMisbehaviour(StateHome(), entry.name, [&entry] { return Meant(entry.serial); });
    } catch (...) {
        return {};  // without a folder there is no plan; the work says that there is none
    }
}

// What the plan wants before the work begins.
void Prepare(const Misbehaviour& plan, const char* serial) {
    if (plan.exclusive && !OccupyKey(StateHome(), Meant(serial))) {
        throw Failure(kStateBusy);
    }
    if (plan.removal != Removal::kBefore) return;
    // Where nothing is there to be pulled out the work finds that by itself.
    if (const auto key = KeyIfThere(serial)) PullOut(key->serial, plan);
}

// The length as it is told. A true text, which may be confidential, is copied nowhere else.
std::size_t PutText(const Misbehaviour& plan, std::string_view text, char* buffer,
                    std::size_t room) {
    if (plan.output != Misbehaviour::Output::kTrue) {
        const SpoiledText spoiled(plan, text, room);
        std::memcpy(buffer, spoiled.written.data(), spoiled.written.size());
        return spoiled.length;
    }
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    return text.size();
}

// A text for as long as the process lives.
const char* Kept(const std::string& text) {
    static auto* const mutex = new std::mutex;
    static auto* const texts = new std::set<std::string>;
    const std::lock_guard<std::mutex> lock(*mutex);
    return texts->insert(text).first->c_str();
}

}  // namespace

void Call::Midway(const KeyRecord& key) {
    Pass(&key);
}

KeyRecord Call::LookAt(const char* serial) {
    KeyRecord key = KeyOf(serial);
    Pass(&key);
    return key;
}

void Call::PassMidway() {
    if (!plan_.HasInterlude()) return;
    const bool usesKey = (TraitsOf(entry_.name) & kUsesKey) != 0;
    const auto key = usesKey ? KeyIfThere(entry_.serial) : std::nullopt;
    Pass(key ? &*key : nullptr);
}

void Call::Pass(const KeyRecord* key) {
    if (passed_ || !plan_.HasInterlude()) return;
    passed_ = true;
    WaitAsPlanned(plan_, StateHome(), [key](std::chrono::milliseconds time) {
        {
            const Pausing pausing;
            std::this_thread::sleep_for(time);
        }
        if (key != nullptr) RequireStillThere(*key);
    });
    const bool removes = plan_.removal == Removal::kDuring || plan_.removal == Removal::kMoment;
    if (key != nullptr && removes) PullOut(key->serial, plan_);
    FailAsPlanned(plan_);
    if (key != nullptr) RequireStillThere(*key);
}

int EnterWith(const EntryPoint& entry, const std::function<void(Call&)>& body) {
    const AtWork atWork;
    const WholeOpenssl openssl;
    const bool misbehaving = Look(entry);
    if (IsLookRequest(entry.serial)) return kOk;
    const Misbehaviour plan = misbehaving ? PlanFor(entry) : Misbehaviour();
    Call call(entry, plan);
    const int result = Guarded([&] {
        Prepare(plan, entry.serial);
        if (!plan.code) body(call);
        call.PassMidway();
        if (plan.code) throw Failure(static_cast<Code>(*plan.code));
        return kOk;
    });
    if (plan.length && !plan.code && entry.length != nullptr) *entry.length = *plan.length;
    return result == kOk && plan.codeAfter ? *plan.codeAfter : result;
}

bool IsProbe(std::size_t needed, const void* buffer, std::uint32_t* length) {
    if (length == nullptr) throw Failure(kBadArgument);
    const std::uint32_t size = *length;
    if (buffer != nullptr && size >= needed) return false;
    *length = static_cast<std::uint32_t>(needed);
    if (buffer != nullptr) throw Failure(kBufferTooSmall);
    return true;
}

void Call::WriteText(std::string_view text, char* buffer, std::uint32_t* length) const {
    if (IsProbe(text.size() + 1, buffer, length) || plan_.AnswerIsLost()) return;
    *length = static_cast<std::uint32_t>(PutText(plan_, text, buffer, *length));
}

void Call::WriteBytes(std::string_view bytes, void* buffer, std::uint32_t* length) const {
    if (plan_.AnswerIsLost()) return;
    const std::string spoiled = Spoiled(plan_, bytes);
    std::memcpy(buffer, spoiled.data(), spoiled.size());
    *length = static_cast<std::uint32_t>(spoiled.size());
}

void Call::Copy(std::string_view text, char* buffer, std::size_t size) const {
    if (buffer == nullptr) throw Failure(kBadArgument);
    if (!plan_.AnswerIsLost()) PutText(plan_, text, buffer, size);
}

void Call::HandOut(std::string_view text, char** place) const {
    *place = nullptr;
    if (plan_.AnswerIsLost()) return;
    const std::string spoiled = Spoiled(plan_, text);
    const std::size_t size = spoiled.size() + 1;
    auto copy = std::make_unique<char[]>(size);
    std::memcpy(copy.get(), spoiled.c_str(), size);
    *place = copy.release();
}

const char* Call::Standing(const char* text) const {
    using Output = Misbehaviour::Output;
    if (plan_.output == Output::kTrue) return text;
    return plan_.output == Output::kNone ? nullptr : Kept(Spoiled(plan_, text));
}

}  // namespace softkey

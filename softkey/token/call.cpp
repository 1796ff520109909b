#include "softkey/token/call.h"

#include <openssl/err.h>

#include <chrono>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "softkey/result.h"
#include "softkey/store/home.h"
#include "softkey/store/keys.h"
#include "softkey/token/device.h"
#include "softkey/token/fork_gate.h"
#include "softkey/token/look_request.h"

namespace softkey {
namespace {

void PullOut(const char* serial) {
    LockedDevice device;
    KeyTable(device.store()).SetInserted(device.Resolve(serial).serial, false);
    device.Refresh();
}

// What every call begins with. It also drops the secrets of keys that are gone. A state that cannot
// be looked at is for those to tell who need it, and they look again.
void Look() noexcept {
    try {
        const LockedDevice device(LockedDevice::Look::kFresh);
    } catch (...) {
        ERR_clear_error();
    }
}

// What the plan wants before the work begins.
void Misbehave(const Misbehaviour& plan, const char* serial) {
    if (plan.delayMs != 0) {
        {
            const Pausing pausing;
            std::this_thread::sleep_for(std::chrono::milliseconds(plan.delayMs));
        }
        Look();
    }
    if (plan.removal != Misbehaviour::Removal::kBefore) return;
    try {
        PullOut(serial);
    } catch (const Failure&) {
        // Nothing is there to be pulled out; the work finds that by itself.
    }
}

int Run(const std::function<void(Call&)>& body, Call& call) noexcept {
    try {
        body(call);
        return kOk;
    } catch (const Failure& failure) {
        ERR_clear_error();
        return failure.code();
    } catch (const std::bad_alloc&) {
        return kNoMemory;
    } catch (...) {
        return kCryptoFailed;
    }
}

Misbehaviour PlanFor(const char* name) noexcept {
    try {
        return NextMisbehaviour(StateHome(), name);
    } catch (...) {
        return {};  // without a folder there is no plan; the work says that there is none
    }
}

}  // namespace

void Call::Midway(const KeyRecord& key) const {
    if (plan_.removal == Misbehaviour::Removal::kDuring) PullOut(key.serial.c_str());
}

int Enter(const EntryPoint& entry, const std::function<void(Call&)>& body) {
    const AtWork atWork;
    Look();
    if (IsLookRequest(entry.serial)) return kOk;
    const Misbehaviour plan = PlanFor(entry.name);
    if (!plan.Empty()) {
        Misbehave(plan, entry.serial);
        if (plan.throws) throw std::runtime_error("misbehaviour as planned");
        if (plan.code) return *plan.code;
    }
    Call call(plan);
    const int result = Run(body, call);
    if (plan.length && entry.length != nullptr) *entry.length = *plan.length;
    return result;
}

bool IsProbe(std::size_t needed, const void* buffer, std::uint32_t* length) {
    if (length == nullptr) throw Failure(kBadArgument, "no length");
    const std::uint32_t size = *length;
    if (buffer != nullptr && size >= needed) return false;
    *length = static_cast<std::uint32_t>(needed);
    if (buffer != nullptr) throw Failure(kBufferTooSmall);
    return true;
}

void WriteText(std::string_view text, char* buffer, std::uint32_t* length) {
    if (IsProbe(text.size() + 1, buffer, length)) return;
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    *length = static_cast<std::uint32_t>(text.size());
}

}  // namespace softkey

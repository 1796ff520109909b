// A C++17 face over the flat interface of kesta_unified_zrkukey.h: std::string and std::vector in
// and out. Header-only; needs the C++ runtime, <dlfcn.h> and threads.
//
//     const auto library = kesta::Library::Load();           // or kesta::Library::Linked()
//     const kesta::Key key = library.PresentKey();
//     key.VerifyPIN();
//     const std::string signature = key.Sign(kesta::KeyType::kSm2, kesta::HashType::kSm3,
//                                            "pay 12.50", "Pay 12.50?");
//
//  1. Operations have the names of the functions. The probe, buffer sizes and the question whether
//     a length counts the NUL are dealt with inside.
//  2. Errors. An operation throws kesta::Error with code, operation and message. library.Try() has
//     the same operations without exceptions of ours: they answer a kesta::Result. std::bad_alloc
//     is thrown by both.
//  3. Refusals. An input that would end the process, or raise an exception inside the library, is
//     answered by KESTA_BAD_ARGUMENT before any call: an escrowed key above 1024 characters, a
//     group of request information that ends right after a name, a text with a NUL byte.
//  4. Lengths that the token reports are not trusted; see caller.hpp.
//     Failure::kind() tells what went wrong whatever the token library's numbers are; codes.hpp.
//  5. Threads. Any thread may call any operation. Those that ask the token take turns inside,
//     program-wide: one stands behind a signature that waits for its button, unless it was called
//     on library.Within(milliseconds), which gives up with Kind::kBusy. Those that ask no token
//     wait for nobody: GetDriverVersion, GetDllVersion, GetVidAndPid, GetVendorInfo,
//     CheckDriverIntegrity, GetLastErrCode, Finalize and the obsolete ones. WaitForKeyEvent and
//     EventWaiter wait beside all; one wait at a time, a second one fails at once.
//  6. Copies. A Library is a table of pointers; copy it freely. The loaded file is never unloaded.
#ifndef KESTA_UKEY_HPP
#define KESTA_UKEY_HPP

#include <string>
#include <utility>

#include "kesta/ukey/events.hpp"
#include "kesta/ukey/key.hpp"
#include "kesta/ukey/operations.hpp"

namespace kesta {

template <class Form>
class EventOperations : public Operations<Form> {
public:
    using Operations<Form>::Operations;

    // Blocks until an event or StopDetectUKey. EventWaiter is easier to stop.
    typename Form::template Answer<Event> WaitForKeyEvent() const {
        const OneWait turn;
        if (!turn.Granted()) return Form::template Fail<Event>(WaitInProgress(kWaitName));
        return Form::Give(WaitOnce(this->caller()));
    }

    // Ends a wait in progress. Not remembered: repeat it until the waiting thread has returned.
    typename Form::template Answer<void> StopDetectUKey() const {
        const auto outcome = Caller::Call(this->F().StopDetectUKey);
        if (outcome.Failed()) {
            return Form::template Fail<void>(
                this->caller().DescribeLate("StopDetectUKey", outcome));
        }
        return Form::Give(Result<void>(Nothing{}));
    }

    const Functions& functions() const { return this->F(); }
};

class Library : public EventOperations<Throwing> {
public:
    using Quiet = EventOperations<Returning>;

    explicit Library(const Functions& functions, const Patience& patience = {})
        : EventOperations<Throwing>(functions, patience), quiet_(functions, patience) {}

    // The library that the program is linked with.
    static Library Linked() { return Library(Functions::Linked()); }

    // A library file, by path, or by name where the system looks for libraries.
    static Library Load(const std::string& file = kFileName) { return TryLoad(file).value(); }
    static Result<Library> TryLoad(const std::string& file = kFileName) {
        auto functions = Functions::Load(file);
        if (!functions.ok()) return functions.failure();
        return Library(functions.value());
    }

    const Quiet& Try() const { return quiet_; }

    // The same library, whose operations wait no longer than this for their turn and fail with
    // Kind::kBusy then. Within({}) does not wait at all; it does not shorten an operation itself.
    Library Within(std::chrono::milliseconds patience) const {
        return Library(functions(), patience);
    }

    // The key with this serial number, and the one that is present.
    kesta::Key Key(const std::string& serial) const { return {functions(), serial, patience()}; }
    kesta::Key PresentKey() const { return Key(GetPrintNumber()); }

    static constexpr const char* kFileName = "libkesta_unified_zrkukey.so";

private:
    Quiet quiet_;
};

}  // namespace kesta

#endif

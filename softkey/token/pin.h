// Verifying and changing the PIN of a key.
#ifndef SOFTKEY_TOKEN_PIN_H
#define SOFTKEY_TOKEN_PIN_H

#include <functional>
#include <memory>
#include <string_view>

#include "softkey/token/device.h"

namespace softkey {

// Both leave the key unlocked for this process. A try is counted, durably, before the PIN is
// looked at. kPinWrong, kPinLocked, kPinLength, kKeyRemoved; kPinRequired when the PIN was changed
// by someone else meanwhile.
std::shared_ptr<Unlocked> VerifyPin(const KeyRecord& key, std::string_view pin);
// Asks the person; kPinCancelled too. midway stands between what the person does and what the key
// does.
using Midway = std::function<void()>;
std::shared_ptr<Unlocked> AskAndVerifyPin(
    const KeyRecord& key, const Midway& midway = [] {});

// What every use of a private key begins with: asks only when the key is not unlocked.
std::shared_ptr<Unlocked> RequirePin(const KeyRecord& key);

// Asks for the present PIN, then for the new one.
void ChangePinOf(const KeyRecord& key, const Midway& midway);

// Erases what is on the key and gives it a new PIN: the text, or when that is null what the person
// says. The key is unlocked afterwards.
void InitialiseWithNewPin(const KeyRecord& key, const char* pin, const Midway& midway);

}  // namespace softkey

#endif

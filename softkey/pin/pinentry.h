// Where a PIN comes from when the key asks for it.
//
// 1. $KESTA_SOFTKEY_PIN for the present PIN, $KESTA_SOFTKEY_NEW_PIN for a new one. A variable that
//    is set to nothing counts as unset.
// 2. The program `pinentry`, found through $PATH, which shows the question to the person.
// 3. Nobody: kPinCancelled. Whatever goes wrong with pinentry is a cancel too: it cannot be
//    started, has no display, dies, hangs, or says what the protocol does not know.
//
// The length of a PIN is the key's to judge, not checked here.
#ifndef SOFTKEY_PIN_PINENTRY_H
#define SOFTKEY_PIN_PINENTRY_H

#include <chrono>
#include <string>

#include "softkey/codes.h"
#include "softkey/messages.h"
#include "softkey/pin/secret_text.h"

namespace softkey {

// What the person is told about the key that asks.
struct PinContext {
    std::string serial;
    std::string label;
    int triesLeft = -1;        // negative: not said
    bool wrongBefore = false;  // the PIN entered a moment ago was wrong
    Language language = Language::kChinese;
    std::chrono::milliseconds patience = std::chrono::minutes(5);          // with the person
    std::chrono::milliseconds protocolPatience = std::chrono::seconds(5);  // with the program
};

// kOk with the PIN, kPinCancelled, or kPinLength when the text exceeds what SecretText holds. On
// failure the PIN is empty.
Code AskPresentPin(const PinContext& context, SecretText& pin) noexcept;

// The same for a new PIN, which the person enters twice: kPinMismatch when the entries differ. The
// first PIN of a key that is being made comes from $KESTA_SOFTKEY_PIN, since there is no other.
enum class NewPinKind { kChange, kFirst };
Code AskNewPin(const PinContext& context, SecretText& pin,
               NewPinKind kind = NewPinKind::kChange) noexcept;

}  // namespace softkey

#endif

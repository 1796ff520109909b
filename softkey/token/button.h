// The key's own screen and button, which confirm a critical signature.
#ifndef SOFTKEY_TOKEN_BUTTON_H
#define SOFTKEY_TOKEN_BUTTON_H

#include <string>

#include "softkey/token/device.h"

namespace softkey {

// What the next critical signature of this process shows; kTooLong over 1024 bytes.
void SetWarning(const KeyRecord& key, const std::string& text);
// Shows the text that was set, for this once.
void ConfirmWarningAtButton(const KeyRecord& key);

// Shows the text and returns when the button is pressed. kButtonRefused, kButtonTimeout after 30
// seconds ($KESTA_SOFTKEY_BUTTON_MS changes that), kKeyRemoved.
void ConfirmAtButton(const KeyRecord& key, const std::string& text);

}  // namespace softkey

#endif

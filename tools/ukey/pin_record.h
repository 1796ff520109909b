// The PIN information record. Its layout is the token library's; that of the software key is known.
#ifndef UKEY_PIN_RECORD_H
#define UKEY_PIN_RECORD_H

#include <functional>
#include <optional>
#include <string>

#include "kesta/ukey.hpp"

namespace ukey {

struct PinState {
    int triesLeft = 0;
    int maxTries = 0;
    bool locked = false;
    bool verified = false;  // in this process
    bool caching = false;
    int shortest = 0;
    int longest = 0;
};

// True when the token library in use is the software key's: it knows the text of a code of its own.
bool IsSoftwareKey(const kesta::Library& library);

// Nothing where the token library is not the software key's.
std::optional<PinState> ReadPinState(const kesta::Library& library, const kesta::Bytes& record);

// Does something that asks for the PIN. Where that fails over the PIN, what is thrown also says how
// many tries are left, if that can be known.
void TellTries(const kesta::Library& library, const std::string& serial,
               const std::function<void()>& step);

// "3 of 6 tries are left"
std::string TriesText(const PinState& state);

}  // namespace ukey

#endif

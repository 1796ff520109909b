// The PIN information record. Its layout is the token library's; a table of codes may know it.
#ifndef UKEY_PIN_RECORD_H
#define UKEY_PIN_RECORD_H

#include <functional>
#include <optional>
#include <string>

#include "kesta/ukey.hpp"

namespace ukey {

// True when the token library in use is the software key's: it knows the text of a code of its own.
bool IsSoftwareKey(const kesta::Library& library);

// Where the table in use says that they are. Nothing where it is the software key's table, there
// for want of another, and the token library is not.
std::optional<kesta::Tries> ReadTries(const kesta::Library& library, const kesta::Bytes& record);

// Does something that asks for the PIN. Where that fails over the PIN, what is thrown also says how
// many tries are left, if that can be known.
void TellTries(const kesta::Library& library, const std::string& serial,
               const std::function<void()>& step);

// "3 of 6 tries are left"
std::string TriesText(const kesta::Tries& tries);

}  // namespace ukey

#endif

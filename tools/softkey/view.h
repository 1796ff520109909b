// What a key holds, as shown to people and to programs.
#ifndef SOFTKEY_COMMAND_VIEW_H
#define SOFTKEY_COMMAND_VIEW_H

#include <string>

#include "kit/json.h"
#include "softkey/store/records.h"
#include "softkey/store/store.h"

namespace softkey::command {

const char* NameOf(Role role);
const char* NameOf(Algorithm algorithm);
const char* NameOf(Button button);

// The key without its contents, as it stands in every JSON answer that names a key.
kit::Json KeyJson(const KeyRecord& key);
// With pairs, certificates and the names of its data objects. Nothing secret is in it.
kit::Json KeyWithContentsJson(Store& store, const KeyRecord& key);
std::string KeyWithContentsText(Store& store, const KeyRecord& key);

}  // namespace softkey::command

#endif

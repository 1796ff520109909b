// The tables of a state, and how the state of an earlier version becomes one of this.
#ifndef SOFTKEY_STORE_SCHEMA_H
#define SOFTKEY_STORE_SCHEMA_H

#include <cstdint>
#include <string>

#include "softkey/store/database.h"

namespace softkey {

// Kept in the database as its user_version.
constexpr std::int64_t kSchemaVersion = 2;

std::int64_t SchemaVersion(Database& db);

// A state without a key.
Bytes FreshImage();
// The state that the folder of an earlier version holds, which is left as it is. kStateDamaged.
Bytes ImageOfOldState(const std::string& home);

}  // namespace softkey

#endif

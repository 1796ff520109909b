// The search for damage in the stored state.
#ifndef SOFTKEY_STORE_DAMAGE_H
#define SOFTKEY_STORE_DAMAGE_H

#include <string>
#include <vector>

#include "softkey/store/store.h"

namespace softkey {

// The names of what is damaged, one line each; empty when all is well.
std::vector<std::string> FindDamage(Store& store);

}  // namespace softkey

#endif

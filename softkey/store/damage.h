// The search for damage in the stored state.
#ifndef SOFTKEY_STORE_DAMAGE_H
#define SOFTKEY_STORE_DAMAGE_H

#include <string>
#include <vector>

namespace softkey {

// The names of what is damaged in a state folder, one line each; empty when all is well, or when no
// state was ever made there. Looks inside a database that is not what was stored last, too.
std::vector<std::string> FindDamage(const std::string& home);

}  // namespace softkey

#endif

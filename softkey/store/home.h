// Where the software key keeps its state.
#ifndef SOFTKEY_STORE_HOME_H
#define SOFTKEY_STORE_HOME_H

#include <string>

namespace softkey {

// $KESTA_SOFTKEY_HOME, else $XDG_DATA_HOME/kesta-softkey, else ~/.local/share/kesta-softkey. A
// variable set to nothing counts as unset. Creates nothing. Throws kStateUnreachable when none of
// them is known.
std::string StateHome();

// Makes the folder, and the missing ones above it, for its owner alone. An existing folder is left
// as it is. Throws kStateFull or kStateUnreachable.
void MakeHome(const std::string& home);

}  // namespace softkey

#endif

// Where the software key keeps its state.
#ifndef SOFTKEY_STORE_HOME_H
#define SOFTKEY_STORE_HOME_H

#include <string>

namespace softkey {

// $KESTA_SOFTKEY_HOME, else $XDG_DATA_HOME/kesta-softkey, else ~/.local/share/kesta-softkey. A
// variable set to nothing counts as unset. Creates nothing. Throws kStateUnreachable when none of
// them is known.
std::string StateHome();

// Makes the folder, and the missing ones above it, for its owner alone. Throws kStateFull or
// kStateUnreachable, the latter also for an existing folder that others may read or write.
void MakeHome(const std::string& home);

// True when the folder is there. Throws kStateUnreachable when others may read or write it.
bool IsUsableHome(const std::string& home);
bool IsWritable(const std::string& home);

}  // namespace softkey

#endif

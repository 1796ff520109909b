// Exclusive use, as a plan asks for it.
#ifndef SOFTKEY_MISBEHAVIOUR_OCCUPATION_H
#define SOFTKEY_MISBEHAVIOUR_OCCUPATION_H

#include <string>

namespace softkey {

// Takes the key of this serial number for the calling process, until it ends. False when another
// process has it. A child that is forked then shares it.
bool OccupyKey(const std::string& home, const std::string& serial);

}  // namespace softkey

#endif

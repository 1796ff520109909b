// The kit's names, as this command uses them.
#ifndef UKEY_NAMES_H
#define UKEY_NAMES_H

#include "kit/files.h"
#include "kit/output.h"

namespace ukey {

using namespace kit;

}  // namespace ukey

#endif

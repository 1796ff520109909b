// What `ukey` says of itself.
#ifndef UKEY_ABOUT_H
#define UKEY_ABOUT_H

#include "kit/program.h"

namespace ukey {

extern const kit::About kAbout;

}  // namespace ukey

#endif

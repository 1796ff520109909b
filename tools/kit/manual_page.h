// The manual page: the definitions' options and examples between the program's own texts.
#ifndef KIT_MANUAL_PAGE_H
#define KIT_MANUAL_PAGE_H

#include <string>

#include "kit/definitions.h"
#include "kit/program.h"

namespace kit {

std::string ManualPage(const About& about, const ProgramFacts& program);

}  // namespace kit

#endif

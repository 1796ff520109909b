// The subcommands: one row of the table in commands.cpp and one file for each.
#ifndef SOFTKEY_COMMAND_COMMANDS_H
#define SOFTKEY_COMMAND_COMMANDS_H

#include "kit/program.h"

namespace softkey::command {

extern const kit::About kAbout;

void AddCommands(kit::Program& program, kit::Console& console);

}  // namespace softkey::command

#endif

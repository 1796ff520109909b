// The subcommands: one row of the table in commands.cpp and one file for each.
#ifndef UKEY_COMMANDS_H
#define UKEY_COMMANDS_H

#include "kit/program.h"
#include "session.h"

namespace ukey {

void AddCommands(kit::Program& program, Session& session);

}  // namespace ukey

#endif

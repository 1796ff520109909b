// The subcommands, each added by one function.
#ifndef SOFTKEY_ADMIN_COMMANDS_H
#define SOFTKEY_ADMIN_COMMANDS_H

#include "softkey/admin/session.h"

namespace softkey::admin {

void AddCreate(CLI::App& app, Session& session);
void AddList(CLI::App& app, Session& session);
void AddShow(CLI::App& app, Session& session);
void AddUnlock(CLI::App& app, Session& session);
void AddInsert(CLI::App& app, Session& session);
void AddRemove(CLI::App& app, Session& session);
void AddDelete(CLI::App& app, Session& session);
void AddCheck(CLI::App& app, Session& session);
void AddScreen(CLI::App& app, Session& session);
void AddButton(CLI::App& app, Session& session);
void AddMisbehave(CLI::App& app, Session& session);
void AddEnvelope(CLI::App& app, Session& session);
void AddExportCert(CLI::App& app, Session& session);
void AddPath(CLI::App& app, Session& session);

}  // namespace softkey::admin

#endif

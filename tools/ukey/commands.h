// The subcommands, by family. Each function adds its own to the command line.
#ifndef UKEY_COMMANDS_H
#define UKEY_COMMANDS_H

#include "session.h"

namespace ukey {

void AddInfoCommands(CLI::App& app, Session& session);         // info, check-install, error
void AddPinCommands(CLI::App& app, Session& session);          // pin, init
void AddEnrolCommands(CLI::App& app, Session& session);        // request, batch-request
void AddImportCommand(CLI::App& app, Session& session);        // import
void AddCertificateCommands(CLI::App& app, Session& session);  // cert
void AddSignCommands(CLI::App& app, Session& session);         // sign, sign-hash, batch-sign
void AddDecryptCommand(CLI::App& app, Session& session);       // decrypt
void AddDataCommands(CLI::App& app, Session& session);         // label, data, charset, language
void AddWaitCommand(CLI::App& app, Session& session);          // wait
void AddLogCommand(CLI::App& app, Session& session);           // log
void AddDoctorCommand(CLI::App& app, Session& session);        // doctor
void AddCompletionCommands(CLI::App& app, Session& session);   // completion, manual

// The whole command line.
std::unique_ptr<CLI::App> MakeApp(Session& session);

}  // namespace ukey

#endif

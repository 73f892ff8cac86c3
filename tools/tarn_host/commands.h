// The tool's commands, one file each in commands/. Each function adds a command to `line`; the
// command's run throws ToolError, PluginError or std::bad_alloc.
#pragma once

#include "tarn_host/command_line.h"

namespace tarn::host {

void AddNormalizeCommand(CommandLine& line);  // `normalize [FILE...]`: prints canonical texts
void AddTraceCommand(CommandLine& line);      // `trace [STATEMENT]`: prints each rewrite step
void AddMapCommand(CommandLine& line);        // `map STATUS`: prints the product's error code
void AddShapesCommand(CommandLine& line);     // `shapes [FILE...]`: counts statements by shape
void AddCheckCommand(CommandLine& line);      // `check [LIBRARY]`: examines a plug-in
void AddConfigCommand(CommandLine& line);     // `config DBNAME`: prints answers for a database
void AddEncryptCommand(CommandLine& line);    // `encrypt`: enciphers a password
void AddKeygenCommand(CommandLine& line);     // `keygen FILE`: makes a key file

}  // namespace tarn::host

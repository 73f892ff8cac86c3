// The tool's commands, one file each in commands/. Each function adds a command to `line`; the
// command's run throws ToolError, PluginError or std::bad_alloc.
#pragma once

#include "tarn_host/command_line.h"

namespace tarn::host {

// `normalize [FILE...]`: the canonical texts of statements.
void AddNormalizeCommand(CommandLine& line);

// `trace [STATEMENT]`: a statement after each rewrite step.
void AddTraceCommand(CommandLine& line);

// `map STATUS`: the product's error code for a native status.
void AddMapCommand(CommandLine& line);

// `shapes [FILE...]`: statements counted by shape.
void AddShapesCommand(CommandLine& line);

// `check [LIBRARY]`: whether a library is fit to be loaded into a host.
void AddCheckCommand(CommandLine& line);

// `config DBNAME`: the product's answers for a database.
void AddConfigCommand(CommandLine& line);

// `encrypt`: a password enciphered for the stand-in's configuration.
void AddEncryptCommand(CommandLine& line);

// `keygen FILE`: a new key file.
void AddKeygenCommand(CommandLine& line);

}  // namespace tarn::host

// The tool's commands, one file each in commands/. Each function adds a command to `app`; when the
// command was chosen, parsing runs it, which leaves its exit code in `exit_code` or throws
// ToolError or PluginError. Both references must outlive the parsing.
#pragma once

#include <CLI/CLI.hpp>

namespace tarn::host {

// `normalize [FILE...]`: the canonical texts of statements.
void AddNormalizeCommand(CLI::App& app, int& exit_code);

// `trace [STATEMENT]`: what each rewrite step makes of a statement.
void AddTraceCommand(CLI::App& app, int& exit_code);

// `map STATUS`: the product's error code for a native status.
void AddMapCommand(CLI::App& app, int& exit_code);

// `shapes [FILE...]`: statements counted by shape.
void AddShapesCommand(CLI::App& app, int& exit_code);

// `check [LIBRARY]`: whether a library is fit to be loaded into a host.
void AddCheckCommand(CLI::App& app, int& exit_code);

// `config DBNAME`: what the product answers for a database.
void AddConfigCommand(CLI::App& app, int& exit_code);

// `encrypt`: a password enciphered for the stand-in's configuration.
void AddEncryptCommand(CLI::App& app, int& exit_code);

// `keygen FILE`: a new key file.
void AddKeygenCommand(CLI::App& app, int& exit_code);

}  // namespace tarn::host

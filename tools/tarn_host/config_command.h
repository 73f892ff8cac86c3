#pragma once

#include <CLI/CLI.hpp>

namespace tarn::host {

// Adds `config DBNAME`: what the plug-in answers for a database. The command's callback leaves its
// exit code in `exit_code` and throws ToolError or PluginError.
void AddConfigCommand(CLI::App& app, int& exit_code);

}  // namespace tarn::host

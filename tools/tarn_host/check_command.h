#pragma once

#include <CLI/CLI.hpp>

namespace tarn::host {

// Adds `check [LIBRARY]`: whether a library is fit to be loaded into a host. The command's callback
// leaves its exit code in `exit_code` and throws ToolError or PluginError.
void AddCheckCommand(CLI::App& app, int& exit_code);

}  // namespace tarn::host

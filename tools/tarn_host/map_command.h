#pragma once

#include <CLI/CLI.hpp>

namespace tarn::host {

// Adds `map STATUS`: the product's error code for a native status. The command's callback leaves
// its exit code in `exit_code` and throws ToolError or PluginError.
void AddMapCommand(CLI::App& app, int& exit_code);

}  // namespace tarn::host

#pragma once

#include <CLI/CLI.hpp>

namespace tarn::host {

// Adds `normalize [FILE...]`: the canonical texts of statements. The command's callback leaves
// its exit code in `exit_code` and throws ToolError or PluginError.
void AddNormalizeCommand(CLI::App& app, int& exit_code);

}  // namespace tarn::host

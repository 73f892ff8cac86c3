#pragma once

#include <CLI/CLI.hpp>

namespace tarn::host {

// Adds `shapes [FILE...]`: how often each shape of statement occurs. The command's callback leaves
// its exit code in `exit_code` and throws ToolError or PluginError.
void AddShapesCommand(CLI::App& app, int& exit_code);

}  // namespace tarn::host

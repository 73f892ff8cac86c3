#pragma once

#include <CLI/CLI.hpp>

namespace tarn::host {

// Adds `trace [STATEMENT]`: what each rewrite step makes of a statement. The callback leaves
// its exit code in `exit_code` and throws ToolError.
void AddTraceCommand(CLI::App& app, int& exit_code);

}  // namespace tarn::host

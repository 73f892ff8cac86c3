#pragma once

#include <CLI/CLI.hpp>

namespace tarn::host {

// Adds `encrypt`: the text to store for a password read from standard input. The command's callback
// leaves its exit code in `exit_code` and throws ToolError or platform::CipherError.
void AddEncryptCommand(CLI::App& app, int& exit_code);

}  // namespace tarn::host

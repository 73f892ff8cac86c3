#pragma once

#include <CLI/CLI.hpp>

namespace tarn::host {

// Adds `keygen FILE`: a new key file for stored passwords. The command's callback leaves its exit
// code in `exit_code` and throws platform::CipherError.
void AddKeygenCommand(CLI::App& app, int& exit_code);

}  // namespace tarn::host

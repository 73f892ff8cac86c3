#pragma once

namespace tarn::host {

// The tool's exit codes. Scripts rely on them.
inline constexpr int kExitSuccess = 0;
// The command ran to its end, but something it was given failed: a statement, a checked fact.
inline constexpr int kExitFailed = 1;
// Bad usage, or an input, output or library that can't be used.
inline constexpr int kExitTrouble = 2;
// Ended by Ctrl-C, as a shell reports it.
inline constexpr int kExitInterrupted = 130;

}  // namespace tarn::host

#pragma once

#include <stdexcept>
#include <string_view>

#include "sql/errors.h"

namespace tarn::host {

// The tool's exit codes. Scripts rely on them.
inline constexpr int kExitSuccess = 0;
// The command ran to its end, but something it was given failed: a statement, a checked fact.
inline constexpr int kExitFailed = 1;
// Bad usage, or an input, output or library that can't be used.
inline constexpr int kExitTrouble = 2;
// Ended by Ctrl-C, as a shell reports it.
inline constexpr int kExitInterrupted = 130;

// What stops a command: bad usage, or a file, stream or library that can't be used. what() is one
// line that names the thing and the reason; main reports it and exits with kExitTrouble.
class ToolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Nobody reads standard output any more.
class ReaderGone : public ToolError {
 public:
  using ToolError::ToolError;
};

// Writes "tarn_host: ", OneLine(`message`) and a newline to standard error, in one piece.
void ReportError(std::string_view message);

}  // namespace tarn::host

#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

#include "sql/errors.h"

namespace tarn::host {

// The tool's exit codes. Scripts rely on them.
inline constexpr int kExitSuccess = 0;
// The command ran to its end, but a statement failed, a checked fact does not hold, or a part of
// the input could not be used.
inline constexpr int kExitFailed = 1;
// Bad usage, or an input, output or library that can't be used.
inline constexpr int kExitTrouble = 2;
// Ended by Ctrl-C, as a shell reports it.
inline constexpr int kExitInterrupted = 130;

// An error that stops a command: bad usage, or a file, stream or library that can't be used. Its
// message is one line that names the thing and the reason. main reports it and exits with
// kExitTrouble.
class ToolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The reader of a pipe, usually standard output, has closed it.
class ReaderGone : public ToolError {
 public:
  using ToolError::ToolError;
};

// Writes "tarn_host: ", OneLine(`message`) and a newline to standard error, in one piece. If
// standard error can't be written, the message is lost. Thread-safe.
inline void ReportError(std::string_view message) {
  std::fputs(("tarn_host: " + OneLine(message) + '\n').c_str(), stderr);
}

}  // namespace tarn::host

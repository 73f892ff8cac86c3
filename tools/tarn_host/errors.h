#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tarn::host {

// What stops a command: bad input, or a file, stream or library that can't be used. what() is one
// line that names the thing and the reason; main reports it and exits with kExitTrouble.
class ToolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// An input that can't be opened or read. A command that has others goes on with those.
class InputError : public ToolError {
 public:
  using ToolError::ToolError;
};

// Nobody reads standard output any more.
class ReaderGone : public ToolError {
 public:
  using ToolError::ToolError;
};

// "`name`: " and the system's text for the error number `error`.
std::string SystemReason(std::string_view name, int error);

// "`input`: statement `number`: `reason`".
std::string StatementReason(std::string_view input, std::uint64_t number, std::string_view reason);

// `text` on one line: control characters, those beyond ASCII in UTF-8 included, become "\n", "\t",
// "\r" or bytes such as "\x1B"; all other bytes stay.
std::string OneLine(std::string_view text);

// Writes "tarn_host: ", OneLine(`message`) and a newline to standard error, in one piece.
void ReportError(std::string_view message);

}  // namespace tarn::host

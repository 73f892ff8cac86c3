// The texts of messages and the error that every reader of files throws.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tarn::host {

// An input that can't be opened or read. what() is one line that names the input and the reason. A
// command that has others goes on with those.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "`name`: " and the system's text for the error number `error`.
std::string SystemReason(std::string_view name, int error);

// "`input`: statement `number`: `reason`".
std::string StatementReason(std::string_view input, std::uint64_t number, std::string_view reason);

// `text` on one line: control characters, those beyond ASCII in UTF-8 included, become "\n", "\t",
// "\r" or bytes such as "\x1B"; all other bytes stay.
std::string OneLine(std::string_view text);

}  // namespace tarn::host

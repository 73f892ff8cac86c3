// The texts of messages and the error that every reader of files throws.
#pragma once

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

// `text` with every control character made visible: "\n", "\t", "\r" or bytes such as "\x1B".
// Control characters are those of ASCII, U+0080 to U+009F in UTF-8, and a byte of 0x80 to 0x9F that
// is part of no valid UTF-8, which some terminals obey, too. All other bytes stay.
// OneLine("a\n\x9B") is "a\\n\\x9B".
std::string OneLine(std::string_view text);

// As OneLine, but newlines and tabs stay: for a text of several lines on a terminal.
std::string Printable(std::string_view text);

}  // namespace tarn::host

// The texts of messages, and the error that every reader of files throws. Any thread may call the
// functions.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace tarn::host {

// An input can't be opened or read. The message, what(), is one line with the input's name and the
// reason. A command goes on with its other inputs.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// `name` and the system's text for the error number `error`: "a.sql: No such file or directory".
std::string SystemReason(std::string_view name, int error);

// `text` with every control character made visible: OneLine("a\n\x9B") is "a\\n\\x9B". Control
// characters are those of ASCII, U+0080 to U+009F in UTF-8, and a byte of 0x80 to 0x9F that is not
// part of valid UTF-8, since some terminals obey it, too. All other bytes stay.
std::string OneLine(std::string_view text);

// As OneLine, but newlines and tabs stay, for a text of several lines on a terminal.
std::string Printable(std::string_view text);

}  // namespace tarn::host

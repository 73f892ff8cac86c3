#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "logs/postgres_messages.h"

namespace tarn::host {

// PostgreSQL's log_line_prefix, such as "%m [%p] %q%u@%d ". Any thread may call its Read.
class PostgresPrefix {
 public:
  explicit PostgresPrefix(std::string_view format);

  // Reads the prefix at the start of `line` into `message`, which has no other fields yet. Returns
  // the rest, which begins with a severity, or nothing if the line begins in another way; `message`
  // may have some fields then.
  std::optional<std::string_view> Read(std::string_view line, PostgresMessage& message) const;

 private:
  // A literal and the letter of the field after it, or '\0' after the last: "%p [%u" ->
  // {"", 'p'}, {" [", 'u'}, {"", '\0'}.
  struct Part {
    std::string literal;
    char field;
  };

  std::vector<Part> parts_;
};

// The word before ":  " at the start of `text`: "LOG:  ready" -> "LOG"; empty if there is none.
std::string_view SeverityAt(std::string_view text) noexcept;

}  // namespace tarn::host

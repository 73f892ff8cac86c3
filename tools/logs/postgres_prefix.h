#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "logs/log_time.h"

namespace tarn::host {

// What the prefix of a line tells. Texts are within the line.
struct PrefixFields {
  std::optional<LogTime> time = {};
  std::string_view session = {};
  std::string_view user = {};
  std::string_view database = {};
  std::string_view host = {};
  std::string_view sqlstate = {};
  std::string_view query_id = {};
};

// PostgreSQL's log_line_prefix, such as "%m [%p] %q%u@%d ".
class PostgresPrefix {
 public:
  explicit PostgresPrefix(std::string_view format);

  // Reads the prefix at the start of `line`. Returns the rest, which begins with a severity;
  // nothing when the line begins in another way.
  std::optional<std::string_view> Read(std::string_view line, PrefixFields& fields) const;

 private:
  // A literal, then the field with this letter, or no field ('\0').
  struct Part {
    std::string literal;
    char field;
  };

  std::vector<Part> parts_;
};

// The word before ":  " at the start of `text`, such as "LOG"; empty when there is none.
std::string_view SeverityAt(std::string_view text) noexcept;

}  // namespace tarn::host

// What the readers of logs hand to those who count: statements, and what the log says of each
// execution.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "logs/log_time.h"

namespace tarn::host {

// What a log says of one execution of a statement. Where a log does not tell something, a number is
// absent and a text empty. Texts are within the text that was split or in Found::owned.
struct Execution {
  std::optional<double> seconds = {};
  std::optional<double> lock_seconds = {};
  std::optional<std::uint64_t> rows_sent = {};
  std::optional<std::uint64_t> rows_examined = {};
  std::optional<std::uint64_t> rows_affected = {};
  std::optional<LogTime> time = {};
  std::string_view user = {};
  std::string_view database = {};
  std::string_view host = {};
  // The values bound to the statement's parameters, as the log prints them.
  std::string_view parameters = {};
  // The server's own name for the shape of the statement.
  std::string_view query_id = {};
  // The error with which the statement ended: a number or an SQLSTATE.
  std::string_view error = {};
  // Whether the statement ran. Its parsing and binding may take time of their own.
  bool executed = true;
};

struct FoundStatement {
  // Within the text that was split, or in Found::owned.
  std::string_view text;
  Execution execution = {};
};

// What calls of Splitter::Split found.
struct Found {
  std::vector<FoundStatement> statements;
  // Texts that do not lie in the input as they are. A deque, since views of them are kept.
  std::deque<std::string> owned;
  // The earliest and the latest time in the log, also of entries that hold no statement.
  std::optional<LogTime> first_time;
  std::optional<LogTime> last_time;

  void Clear();
};

}  // namespace tarn::host

// The statements that splitters find, and the facts that a log reports about each execution.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "logs/log_time.h"

namespace tarn::host {

// One execution of a statement. If a log does not report a fact, its number is absent or its text
// is empty. Texts are views of the text that was split or of Found::owned.
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
  // The number that the server itself gives to statements of this shape.
  std::string_view query_id = {};
  // The error with which the statement ended: a number, an SQLSTATE or, if the log has neither, a
  // severity such as "ERROR".
  std::string_view error = {};
  // Whether this counts as an execution. The parsing or binding of a statement does not count,
  // though it takes time, nor does an error, unless an earlier line reported the statement.
  bool executed = true;
};

struct FoundStatement {
  // A view, as the texts of Execution are.
  std::string_view text;
  Execution execution = {};
};

// The results of calls of Splitter::Split. Not thread-safe.
struct Found {
  std::vector<FoundStatement> statements;
  // Texts that are not in the input byte by byte, for example if the input doubles their quotes. A
  // deque, so that views of them stay valid.
  std::deque<std::string> owned;
  // The earliest and the latest time in the log, even if their entries hold no statement.
  std::optional<LogTime> first_time;
  std::optional<LogTime> last_time;
  // The number of entries of a log, with statements or without.
  std::uint64_t entries = 0;
  // The number of entries that are left out since they are damaged.
  std::uint64_t damaged = 0;
  // The number of statements that are left out since they are too long, and the number of
  // statements before the first of them.
  std::uint64_t too_long = 0;
  std::size_t before_too_long = 0;
  // The number of times that no server can mean. Their statements are untimed.
  std::uint64_t impossible_times = 0;

  // Keeps the memory of `statements`.
  void Clear() {
    statements.clear();
    owned.clear();
    first_time = last_time = std::nullopt;
    entries = damaged = too_long = impossible_times = 0;
  }
  // `text` as a view of `owned`, for the statement that is added next. Statements that follow one
  // another often share a text, such as a user's name; then it is kept once.
  std::string_view Share(std::string_view Execution::*field, std::string_view text) {
    if (text.empty()) return {};
    if (!statements.empty() && statements.back().execution.*field == text) {
      return statements.back().execution.*field;
    }
    return owned.emplace_back(text);
  }
  // Extends the span of times by `time`, if it is known.
  void AddTime(const std::optional<LogTime>& time) {
    if (!time) return;
    if (!first_time || time->Instant() < first_time->Instant()) first_time = time;
    if (!last_time || time->Instant() > last_time->Instant()) last_time = time;
  }
  // `seconds`, or nothing for a time that no server can mean, which is counted. A server whose
  // clock is set back prints 18446744073708.796870, for example.
  std::optional<double> PossibleSeconds(double seconds) noexcept {
    constexpr double kTenYears = 10 * 366 * 86'400.0;
    if (seconds >= 0 && seconds <= kTenYears) return seconds;
    ++impossible_times;
    return std::nullopt;
  }
  void CountTooLong() noexcept {
    if (too_long++ == 0) before_too_long = statements.size();
  }
};

}  // namespace tarn::host

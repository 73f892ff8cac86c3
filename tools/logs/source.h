// The statements that splitters find, and the facts that a log reports about each execution.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
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

// Statements of more bytes than this are left out if a person sets no other limit.
inline constexpr std::size_t kMaxStatement = std::size_t{64} << 20U;

// The facts about a file that a person is told at its end.
struct Summary {
  // The number of entries of a log, with statements or without.
  std::uint64_t entries = 0;
  std::uint64_t statements = 0;
  // The number of entries that are left out since they are damaged.
  std::uint64_t damaged = 0;
  // The number of statements that are left out since they are too long, and the number of
  // statements before the first of them.
  std::uint64_t too_long = 0;
  std::uint64_t before_too_long = 0;
  // The number of times that no server can mean. Their statements are untimed.
  std::uint64_t impossible_times = 0;
  // A fault of the whole input, such as "ends inside a quote that begins in line 3".
  std::string problem;
  // The reason why a log with entries holds no statement, if its entries show it.
  std::string why_empty;
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
  Summary summary;
  // The most bytes of a statement. A splitter keeps at most about as many of one that has begun.
  std::size_t max_statement = kMaxStatement;

  // Removes the statements and the times. Keeps the memory of `statements`.
  void Clear() {
    statements.clear();
    owned.clear();
    first_time = last_time = std::nullopt;
  }
  // Adds a statement, or counts it if it is too long.
  void Add(std::string_view text, const Execution& execution = {}) {
    if (text.size() > max_statement) return CountTooLong();
    FoundStatement& statement = statements.emplace_back();
    statement.text = text;
    statement.execution = execution;
    ++summary.statements;
  }
  void CountTooLong() noexcept {
    if (summary.too_long++ == 0) summary.before_too_long = summary.statements;
  }
  // `text` as a view of `owned`.
  std::string_view Own(std::string text) {
    return text.empty() ? std::string_view() : owned.emplace_back(std::move(text));
  }
  // As Own, for the statement that is added next. Statements that follow one another often share a
  // text, such as a user's name; then it is kept once.
  std::string_view Share(std::string_view Execution::*field, std::string_view text) {
    const bool same = !statements.empty() && statements.back().execution.*field == text;
    return same ? statements.back().execution.*field : Own(std::string(text));
  }
  // Counts an entry of a log, which has this time.
  void CountEntry(const std::optional<LogTime>& time) {
    ++summary.entries;
    WidenSpan(first_time, last_time, time);
  }
  // `seconds`, or nothing for a time that no server can mean, which is counted. A server whose
  // clock is set back prints 18446744073708.796870, for example.
  std::optional<double> PossibleSeconds(double seconds) noexcept {
    constexpr double kTenYears = 10 * 366 * 86'400.0;
    if (seconds >= 0 && seconds <= kTenYears) return seconds;
    ++summary.impossible_times;
    return std::nullopt;
  }
};

}  // namespace tarn::host

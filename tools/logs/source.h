// What the readers of logs hand to those who count: statements, and what the log tells of each
// execution.
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

// What a log tells of one execution of a statement. Where a log does not tell something, a number
// is absent and a text empty. Texts are within the text that was split or in Found::owned.
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
  // The error with which the statement ended: a number, an SQLSTATE or, where the log tells no
  // more, "ERROR" and the like.
  std::string_view error = {};
  // Whether this counts as an execution. The parsing or binding of a statement does not, though it
  // takes seconds; nor does a record of an error, unless the log has announced the statement.
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
  // Entries of a log, with statements or without.
  std::uint64_t entries = 0;
  // Entries that are left out since they are damaged.
  std::uint64_t damaged = 0;
  // Statements that are left out since they are too long, and how many were found before the first.
  std::uint64_t too_long = 0;
  std::size_t before_too_long = 0;
  // Times that no server can mean. Their statements are untimed.
  std::uint64_t impossible_times = 0;

  // Keeps the memory of `statements`.
  void Clear() {
    statements.clear();
    owned.clear();
    first_time = last_time = std::nullopt;
    entries = damaged = too_long = impossible_times = 0;
  }
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

// A text that many statements share, such as a user's name. It is kept once in Found::owned for
// statements that follow one another.
class SharedText {
 public:
  void Set(std::string_view text) {
    if (text == text_) return;
    text_ = text;
    kept_ = {};
  }

  // Must be called when a Found may be another or was cleared.
  void Forget() noexcept { kept_ = {}; }

  std::string_view KeepIn(Found& found) {
    if (kept_.empty() && !text_.empty()) kept_ = found.owned.emplace_back(text_);
    return kept_;
  }

 private:
  std::string text_;
  std::string_view kept_;
};

}  // namespace tarn::host

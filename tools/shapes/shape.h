// What is known of the statements of one shape. All of it adds up: in whichever order statements
// and sums of them are added, the result is the same.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "logs/source.h"
#include "shapes/time_statistics.h"

namespace tarn::host {

// One statement with the facts that its log tells; a text is empty where it does not.
template <typename Text>
struct BasicExample {
  Text text;
  std::optional<std::uint64_t> microseconds;
  std::optional<LogTime> time;
  Text user;
  Text database;
  Text host;
  // The values bound to the statement's parameters, as the log prints them.
  Text parameters;
};
using Example = BasicExample<std::string>;

struct Counters {
  Counters& operator+=(const Counters& other);

  // Executions, timed or not.
  std::uint64_t count = 0;
  TimeStatistics times;
  // Sums of the numbers in logs, of at most kMostSum; nothing where no log tells.
  std::optional<std::uint64_t> lock_microseconds;
  std::optional<std::uint64_t> rows_sent;
  std::optional<std::uint64_t> rows_examined;
  std::optional<std::uint64_t> rows_affected;
  // How many executions ended with an error.
  std::uint64_t failures = 0;
  std::optional<LogTime> first_seen;
  std::optional<LogTime> last_seen;
};

struct Shape : Counters {
  // The most server's ids that are kept.
  static constexpr std::size_t kMostQueryIds = 16;

  // Adds one execution of `statement`, or time that is spent on it without executing it.
  void Add(std::string_view statement, const Execution& execution);
  Shape& operator+=(const Shape& other);

  // The failures by their error's number or SQLSTATE.
  std::map<std::string, std::uint64_t> errors;
  // The server's own names of the shape, the first kMostQueryIds in order of their bytes.
  std::set<std::string> query_ids;
  // The fingerprints of the statements' canonical texts, where they were asked for.
  std::set<std::uint64_t> keys;
  // The slowest statement; of several the earliest, then the shortest, then the first in order of
  // its bytes.
  std::optional<Example> example;
};

// The counters of rows by the names that reports give them.
struct RowCounter {
  const char* name;
  std::optional<std::uint64_t> Counters::*value;
};
inline constexpr RowCounter kRowCounters[] = {{"rows_sent", &Counters::rows_sent},
                                              {"rows_examined", &Counters::rows_examined},
                                              {"rows_affected", &Counters::rows_affected}};

// Extends the span from `first` to `last` by `time`. Of two clocks at one instant the one further
// ahead is the later, so that the order of calls does not matter.
void WidenSpan(std::optional<LogTime>& first, std::optional<LogTime>& last,
               const std::optional<LogTime>& time);

}  // namespace tarn::host

// The facts about the statements of one shape. They add up: the order in which statements and sums
// of them are added does not change the result. No object is thread-safe.
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

// One statement with the facts that its log records. A text is empty if the log does not record it.
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
  // Sums of the numbers in logs, of at most kMostSum; nothing if no log records them.
  std::optional<std::uint64_t> lock_microseconds;
  std::optional<std::uint64_t> rows_sent;
  std::optional<std::uint64_t> rows_examined;
  std::optional<std::uint64_t> rows_affected;
  // The number of executions that ended with an error.
  std::uint64_t failures = 0;
  std::optional<LogTime> first_seen;
  std::optional<LogTime> last_seen;
};

struct Shape : Counters {
  // The most server's ids that are kept of a shape.
  static constexpr std::size_t kMostQueryIds = 16;

  // Adds one execution of `statement`. If Execution::executed is false, such as for parsing, only
  // its time and its other facts are added.
  void Add(std::string_view statement, const Execution& execution);
  Shape& operator+=(const Shape& other);

  // The number of failures by the number or SQLSTATE of the error.
  std::map<std::string, std::uint64_t> errors;
  // The server's own ids of the shape, the first kMostQueryIds in order of their bytes.
  std::set<std::string> query_ids;
  // The fingerprints of the statements' canonical texts, if they were asked for.
  std::set<std::uint64_t> keys;
  // The slowest statement. Of several equally slow ones it is the earliest, then the shortest, then
  // the first in order of its bytes.
  std::optional<Example> example;
};

// The counters of rows with their names in reports.
struct RowCounter {
  const char* name;
  std::optional<std::uint64_t> Counters::*value;
};
inline constexpr RowCounter kRowCounters[] = {{"rows_sent", &Counters::rows_sent},
                                              {"rows_examined", &Counters::rows_examined},
                                              {"rows_affected", &Counters::rows_affected}};

}  // namespace tarn::host

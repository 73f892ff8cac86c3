#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sql/dialect.h"

namespace tarn::host {

// How statements lie in an input.
//
// sql: as the dialect separates them.
// lines: one a line, the newline excluded; an empty line is an empty statement.
// nul: each ended by a NUL byte, any other byte being content.
// slowlog, general, csvlog: as the splitters of log_splitter.h find them.
//
// The last statement needs no separator.
enum class StatementFormat { kSql, kLines, kNul, kSlowLog, kGeneralLog, kCsvLog };

// The formats by the names that a person gives them.
const std::map<std::string, StatementFormat>& StatementFormats();

// What a log says of one execution of a statement.
struct Measures {
  std::optional<double> seconds;
  std::uint64_t rows_sent = 0;
  std::uint64_t rows_examined = 0;
};

struct FoundStatement {
  // Within the text that was split, or in Found::owned.
  std::string_view text;
  Measures measures;
};

// What calls of Splitter::Split found.
struct Found {
  std::vector<FoundStatement> statements;
  // Statements that do not lie in the text as they are.
  std::deque<std::string> owned;
  // The earliest and the latest time in a log, as "2026-11-24 09:05:00" in the log's time zone;
  // empty where there is none.
  std::string first_time;
  std::string last_time;

  void Clear();
  // Takes `time` into account, unless it is empty.
  void AddTime(const std::string& time);
};

// Finds statements in a text that arrives piece by piece. Not thread-safe.
class Splitter {
 public:
  Splitter() = default;
  Splitter(const Splitter&) = delete;
  Splitter& operator=(const Splitter&) = delete;
  virtual ~Splitter() = default;

  // Adds the statements that end within `text` to `found`. Returns how many bytes at the start of
  // `text` are done with: the next text begins with the others, followed by new bytes. `last` says
  // that no more come.
  virtual std::size_t Split(std::string_view text, bool last, Found& found) = 0;

  // After the last text: what is wrong with the input as a whole, such as "ends inside a quote that
  // begins in line 3"; empty when nothing is.
  virtual std::string Problem() const { return {}; }
};

// Statements each ended by the byte `separator`; the last needs none.
std::unique_ptr<Splitter> MakeSeparatorSplitter(char separator);

}  // namespace tarn::host

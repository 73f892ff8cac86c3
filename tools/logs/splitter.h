#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "logs/source.h"

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

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "logs/source.h"
#include "sql/dialect.h"

namespace tarn::host {

// Statements of more bytes than this are left out unless a person asks for them.
inline constexpr std::size_t kMaxStatement = std::size_t{64} << 20U;

// How a splitter works; each takes what concerns it.
struct SplitterOptions {
  Dialect dialect = Dialect::kMysql;
  // In bytes. A splitter keeps no more than about this of a statement that has begun.
  std::size_t max_statement = kMaxStatement;
  // PostgreSQL's log_line_prefix; when it is empty, the usual ones are tried.
  std::string prefix = {};
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

  // After the last text: a fault of the input as a whole, such as "ends inside a quote that begins
  // in line 3"; empty when there is none.
  virtual std::string Problem() const { return {}; }

  // Why a log with entries holds no statement, where its entries tell; empty otherwise.
  virtual std::string WhyEmpty() const { return {}; }
};

}  // namespace tarn::host

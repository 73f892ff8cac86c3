#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "logs/source.h"
#include "sql/dialect.h"

namespace tarn::host {

// Statements of more bytes than this are left out if a person sets no other limit.
inline constexpr std::size_t kMaxStatement = std::size_t{64} << 20U;

// The options of all splitters. A splitter ignores those that do not concern it.
struct SplitterOptions {
  Dialect dialect = Dialect::kMysql;
  // In bytes. A splitter keeps at most about as many bytes of a statement that has begun.
  std::size_t max_statement = kMaxStatement;
  // PostgreSQL's log_line_prefix. If it is empty, the usual prefixes are tried.
  std::string prefix = {};
};

// Finds statements in a text that arrives piece by piece. Not thread-safe.
class Splitter {
 public:
  Splitter() = default;
  Splitter(const Splitter&) = delete;
  Splitter& operator=(const Splitter&) = delete;
  virtual ~Splitter() = default;

  // Adds the statements that end within `text` to `found`. Returns the number of bytes at the start
  // of `text` that are no longer needed. The next call gets the other bytes again, followed by new
  // ones: Split("a;b") adds "a" and returns 2, so that the next text begins with "b". If `last`, no
  // bytes come after `text`.
  virtual std::size_t Split(std::string_view text, bool last, Found& found) = 0;

  // After the last text: a fault of the whole input, such as "ends inside a quote that begins in
  // line 3"; empty if there is none.
  virtual std::string Problem() const { return {}; }

  // The reason why a log with entries holds no statement, if its entries show it; otherwise empty.
  virtual std::string WhyEmpty() const { return {}; }
};

}  // namespace tarn::host

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>

#include "impl_dao/product_interface.h"
#include "logs/reader.h"
#include "shapes/keyed_hash.h"
#include "shapes/time_statistics.h"

namespace tarn::host {

// What is known of the statements of one shape.
struct Shape {
  std::uint64_t count = 0;
  // Where the first of them stands among all statements; the first statement of all has 1.
  std::uint64_t first = 0;
  // That first statement.
  std::string example;
  // What the log says of them.
  TimeStatistics times;
  std::uint64_t rows_sent = 0;
  std::uint64_t rows_examined = 0;
};

struct StatementFailure {
  // Where the statement stands, as in Shape::first.
  std::uint64_t position;
  std::string reason;
};

struct ShapeCount {
  // Keyed by the text that the statements of a shape share.
  std::unordered_map<std::string, Shape, KeyedHash> shapes;
  // Statements counted in `shapes`, and those that the product threw on.
  std::uint64_t counted = 0;
  std::uint64_t failed = 0;
  std::optional<StatementFailure> first_failure;
  // As Found has them.
  std::optional<LogTime> first_time;
  std::optional<LogTime> last_time;
};

struct CountOptions {
  // Whether statements are folded (see StatementFolder), each in the dialect of its batch; if not,
  // those meet that share their canonical text.
  bool fold = true;
  unsigned threads = 1;
};

// Replaces the batch by the next statements and the number by the position of their first (see
// Shape::first); false when there are no more. Called by several threads, at once.
using BatchSource = std::function<bool(StatementBatch&, std::uint64_t&)>;

// Counts the statements of `source` by shape on several threads, each with a count of its own, and
// merges the counts. Throws what stopped a thread, such as std::bad_alloc, once the others have
// come to the end of the source, and std::system_error when no thread can be started.
//
// Requires: `product` stands concurrent calls; at least one thread is asked for.
ShapeCount CountShapes(const BatchSource& source, impl_dao::CProductInterface& product,
                       const CountOptions& options);

}  // namespace tarn::host

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "impl_dao/product_interface.h"
#include "logs/reader.h"
#include "shapes/shape.h"

namespace tarn::host {

// A text that a log may tell of an execution.
enum class Detail : std::size_t { kUser, kDatabase, kHost };
inline constexpr std::size_t kDetails = 3;

// "user", "db" or "host".
const char* NameOf(Detail detail) noexcept;

// Shapes are counted apart for each group, and in order of their keys.
struct ShapeKey {
  // The detail that statements are grouped by; empty without one.
  std::string group;
  // The text that the statements of a shape share.
  std::string shape;

  bool operator<(const ShapeKey& other) const noexcept {
    return std::tie(group, shape) < std::tie(other.group, other.shape);
  }
};

struct StatementFailure {
  // The number of the statement among all; the first has 1.
  std::uint64_t position;
  std::string reason;
};

struct ShapeCount {
  ShapeCount& operator+=(ShapeCount other);

  // Ordered: strangers write the keys, and no key can make the others slow.
  std::map<ShapeKey, Shape> shapes;
  // Executions counted in `shapes`.
  std::uint64_t counted = 0;
  // Statements whose canonical text was needed and that the product threw on.
  std::uint64_t failed = 0;
  // The one of them with the lowest position.
  std::optional<StatementFailure> first_failure;
  // The span of the log, or with a filter of the statements that pass it.
  std::optional<LogTime> first_time;
  std::optional<LogTime> last_time;
  // Statements that a filter left out since the log does not tell their time, or the detail.
  std::uint64_t without_time = 0;
  std::array<std::uint64_t, kDetails> without_detail{};
};

// Which executions are counted: all that have each of the properties given.
struct ExecutionFilter {
  // Not before, and before. A time without an offset is by the log's own clock.
  std::optional<LogTime> since;
  std::optional<LogTime> until;
  std::array<std::optional<std::string>, kDetails> details;

  // Whether it may leave something out.
  bool Active() const noexcept;
};

struct CountOptions {
  // As ShapeOptions::fold_digits. Shapes are made in the dialect of each batch.
  bool fold_digits = false;
  // Count by the canonical text instead of by shape; a statement without one is left out.
  bool exact = false;
  // Collect Shape::keys.
  bool keys = false;
  std::optional<Detail> group_by = {};
  ExecutionFilter filter = {};
  unsigned threads = 1;
};

// Replaces the batch by the next statements and the number by the position of their first (see
// StatementFailure::position); false when there are no more. Called by several threads, at once.
using BatchSource = std::function<bool(StatementBatch&, std::uint64_t&)>;

// Counts the statements of `source` by shape on several threads, each with a count of its own, and
// adds the counts. Throws an exception that stopped a thread, such as std::bad_alloc, after the
// others have come to the end of the source, and std::system_error when no thread can be started.
//
// Requires: `product` allows concurrent calls; at least one thread is asked for.
ShapeCount CountShapes(const BatchSource& source, impl_dao::CProductInterface& product,
                       const CountOptions& options);

}  // namespace tarn::host

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <tuple>

#include "impl_dao/product_interface.h"
#include "logs/reader.h"
#include "shapes/shape.h"

namespace tarn::host {

// A text that a log may record with an execution.
enum class Detail : std::size_t { kUser, kDatabase, kHost };
inline constexpr std::size_t kDetails = 3;

// "user", "db" or "host".
const char* NameOf(Detail detail) noexcept;

// The key by which statements are counted: each group has shapes of its own.
struct ShapeKey {
  // The value of the detail that statements are grouped by, such as a user's name; empty without
  // grouping.
  std::string group;
  // The text that the statements of a shape share.
  std::string shape;

  bool operator<(const ShapeKey& other) const noexcept {
    return std::tie(group, shape) < std::tie(other.group, other.shape);
  }
};

struct StatementFailure {
  // The number of the statement among all, from 1.
  std::uint64_t position;
  std::string reason;
};

struct ShapeCount {
  ShapeCount& operator+=(ShapeCount other);

  // An ordered map: strangers write the keys, and could make a hash table slow by colliding ones.
  std::map<ShapeKey, Shape> shapes;
  // Executions counted in `shapes`.
  std::uint64_t counted = 0;
  // Statements whose canonical text was needed while the product threw an exception.
  std::uint64_t failed = 0;
  // The one of them with the lowest position.
  std::optional<StatementFailure> first_failure;
  // The first and last time in the log or, with a filter, of the statements that pass it.
  std::optional<LogTime> first_time;
  std::optional<LogTime> last_time;
  // Statements that a filter left out because the log does not record their time, or the detail.
  std::uint64_t without_time = 0;
  std::array<std::uint64_t, kDetails> without_detail{};
};

// Chooses the executions to count: those that have every property given here.
struct ExecutionFilter {
  // At `since` or later, and before `until`. A time without an offset is in the log's own time
  // zone.
  std::optional<LogTime> since;
  std::optional<LogTime> until;
  std::array<std::optional<std::string>, kDetails> details;

  // Whether any property is given.
  bool Active() const noexcept;
};

struct CountOptions {
  // As ShapeOptions::fold_digits. The dialect is that of each batch.
  bool fold_digits = false;
  // Count by the canonical text instead of by shape. A statement on which the product throws is
  // left out.
  bool exact = false;
  // Collect Shape::keys.
  bool keys = false;
  std::optional<Detail> group_by = {};
  ExecutionFilter filter = {};
  unsigned threads = 1;
};

// Replaces the batch by the next statements and the number by the position of the first of them
// (see StatementFailure::position). Returns false at the end. Several threads call it at once.
using BatchSource = std::function<bool(StatementBatch&, std::uint64_t&)>;

// Counts the statements of `source` by shape on several threads, each with a count of its own, and
// adds the counts. If an exception such as std::bad_alloc stops a thread, the others go on to the
// end of the source, and the exception is thrown then. Throws std::system_error if no thread can be
// started.
//
// Requires: `product` allows concurrent calls, and `options.threads` is at least 1.
ShapeCount CountShapes(const BatchSource& source, impl_dao::CProductInterface& product,
                       const CountOptions& options);

}  // namespace tarn::host

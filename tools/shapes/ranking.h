#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "shapes/counter.h"

namespace tarn::host {

// The measure by which shapes are sorted, the largest first: the number of statements, their total
// time, the time of the slowest one, or the rows that they examined (the rows that they sent, if no
// log records those examined). Of equal shapes the more frequent one comes first, then the one with
// the smaller ShapeKey.
enum class ShapeOrder { kCount, kTime, kMax, kRows };

using ShapeEntry = std::pair<const ShapeKey, Shape>;

struct RankOptions {
  // By default kTime if the input records times, otherwise kCount.
  std::optional<ShapeOrder> order = {};
  // The first `top` shapes of at least `min_count` statements are shown. The others are summed up.
  std::size_t top = std::numeric_limits<std::size_t>::max();
  std::uint64_t min_count = 0;
};

// The shapes of a count that are shown, in order, and the sum of the others.
struct Ranking {
  // The share of a shape in the total time if `order` is kTime, otherwise in the number of
  // statements: from 0 to 1.
  double ShareOf(const Counters& shape) const noexcept;

  // Points into the count that was ranked.
  std::vector<const ShapeEntry*> shown;
  std::size_t other_shapes = 0;
  Counters others;
  // The sum of all shapes.
  Counters all;
  ShapeOrder order = ShapeOrder::kCount;
};

// Ranks the shapes of `count`. The result points into `count`, which must outlive it. Thread-safe.
Ranking Rank(const ShapeCount& count, const RankOptions& options);

}  // namespace tarn::host

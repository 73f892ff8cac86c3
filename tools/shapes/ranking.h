#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "shapes/counter.h"

namespace tarn::host {

// What comes first: the most frequent shape, the one that took the most time, the one with the
// slowest statement, or the one that read the most rows (those examined, or those sent where no log
// tells them); among equals the more frequent one, then in order of ShapeKey.
enum class ShapeOrder { kCount, kTime, kMax, kRows };

using ShapeEntry = std::pair<const ShapeKey, Shape>;

struct RankOptions {
  // By default kTime when the input tells times, otherwise kCount.
  std::optional<ShapeOrder> order;
  // Shapes beyond these many, or of fewer statements, are summed up.
  std::size_t top = std::numeric_limits<std::size_t>::max();
  std::uint64_t min_count = 0;
};

// Which shapes of a count are shown, in order, and the sum of the others.
struct Ranking {
  // Their share of the time if `order` is kTime, otherwise of the statements: from 0 to 1.
  double ShareOf(const Counters& shape) const noexcept;

  // Within the count that was ranked.
  std::vector<const ShapeEntry*> shown;
  std::size_t other_shapes = 0;
  Counters others;
  // The sum of all shapes.
  Counters all;
  ShapeOrder order = ShapeOrder::kCount;
};

// The ranking refers to `count`.
Ranking Rank(const ShapeCount& count, const RankOptions& options);

}  // namespace tarn::host

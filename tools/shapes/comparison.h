#pragma once

#include <cstddef>
#include <vector>

#include "shapes/counter.h"

namespace tarn::host {

// How a shape changed: in the mean time of its statements, or in their number where no times are
// known, by kNotableRatio or more.
enum class Change { kNew, kGone, kSlower, kFaster, kMore, kFewer, kSame };
inline constexpr double kNotableRatio = 1.1;

// "new", "gone" and so on.
const char* NameOf(Change change) noexcept;

struct ShapeChange {
  Change change = Change::kSame;
  // Within the counts that were compared.
  const ShapeKey* key = nullptr;
  // All 0 where the shape is missing.
  Counters before;
  Counters after;
};

struct Comparison {
  // Sums of all shapes.
  Counters before;
  Counters after;
  std::size_t shape_count = 0;
  // Those shapes first that cost most more: time, or statements where no times are known.
  std::vector<ShapeChange> changes;
  bool timed = false;
};

// Keeps the first `top` changes. The comparison refers to the counts.
Comparison Compare(const ShapeCount& before, const ShapeCount& after, std::size_t top);

}  // namespace tarn::host

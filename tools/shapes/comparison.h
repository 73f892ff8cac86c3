#pragma once

#include <cstddef>
#include <vector>

#include "shapes/counter.h"

namespace tarn::host {

// How a shape changed: in the mean time of its statements, or in their number if no times are
// known. A change by less than kNotableRatio is kSame: 100 ms and 109 ms are the same.
enum class Change { kNew, kGone, kSlower, kFaster, kMore, kFewer, kSame };
inline constexpr double kNotableRatio = 1.1;

// "new", "gone" and so on.
const char* NameOf(Change change) noexcept;

struct ShapeChange {
  Change change = Change::kSame;
  // Points into one of the counts that were compared.
  const ShapeKey* key = nullptr;
  // All 0 if the shape is missing.
  Counters before;
  Counters after;
};

struct Comparison {
  bool Timed() const noexcept { return before.times.Known() || after.times.Known(); }

  // Sums of all shapes.
  Counters before;
  Counters after;
  std::size_t shape_count = 0;
  // The shapes whose cost has grown most come first. The cost is the total time, or the number of
  // statements if no times are known.
  std::vector<ShapeChange> changes;
};

// Compares two counts and keeps the first `top` changes. The result points into `before` and
// `after`, which must outlive it. Thread-safe.
Comparison Compare(const ShapeCount& before, const ShapeCount& after, std::size_t top);

}  // namespace tarn::host

#pragma once

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <map>

namespace tarn::host {

// The largest sum. A double of seconds holds so many microseconds, 71 years, exactly.
inline constexpr std::uint64_t kMostSum = (std::uint64_t{1} << 51U) - 1;

// The sum, or kMostSum if the sum is larger. Sums made so do not depend on the order of their
// terms. Requires: neither `a` nor `b` exceeds kMostSum.
constexpr std::uint64_t CappedSum(std::uint64_t a, std::uint64_t b) noexcept {
  assert(a <= kMostSum && b <= kMostSum);
  return std::min(a + b, kMostSum);
}

// Sums up durations in bounded memory: it counts them in some 700 classes. All durations are whole
// microseconds of at most kMostSum, so that the sum of statistics is exact. Not thread-safe.
struct TimeStatistics {
  // The bound of a class is less than this many times each duration in the class.
  static constexpr double kClassRatio = 1.05;

  // `seconds` in microseconds, rounded, and at most kMostSum. Requires: `seconds` is not negative.
  static std::uint64_t Microseconds(double seconds) noexcept;

  // Counts one duration. Requires: `microseconds` is at most kMostSum.
  void Add(std::uint64_t microseconds);
  // Counts durations of one class without adding them to the total. Requires: both numbers are at
  // most kMostSum.
  void AddToClass(std::uint64_t microseconds, std::uint64_t number);
  TimeStatistics& operator+=(const TimeStatistics& other);

  bool Known() const noexcept { return count > 0 || total > 0; }
  // The mean of the durations in microseconds, rounded down; 0 without a duration.
  std::uint64_t Mean() const noexcept { return count == 0 ? 0 : total / count; }
  // 95 % of the durations do not exceed this number of microseconds. It is at most 5 % above the
  // exact percentile; 0 without a duration.
  std::uint64_t Percentile95() const noexcept;

  std::uint64_t count = 0;
  // The sum of the durations, and of time that belongs to no execution, such as that of parsing.
  std::uint64_t total = 0;
  std::uint64_t max = 0;
  // The number of durations in each class, by the bound of the class. A class holds the durations
  // that exceed the bound before it and do not exceed its own.
  std::map<std::uint64_t, std::uint64_t> classes;
};

}  // namespace tarn::host

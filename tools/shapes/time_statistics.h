#pragma once

#include <algorithm>
#include <cstdint>
#include <map>

namespace tarn::host {

// The largest sum: so many microseconds, 71 years, are told exactly by a double of seconds.
inline constexpr std::uint64_t kMostSum = (std::uint64_t{1} << 51U) - 1;

// The sum, or kMostSum if it is larger. So sums do not depend on the order in which they are made.
// Requires: neither exceeds kMostSum.
constexpr std::uint64_t CappedSum(std::uint64_t a, std::uint64_t b) noexcept {
  return std::min(a + b, kMostSum);
}

// Sums up durations in bounded memory: they are counted in classes, some 700 of them. All numbers
// are whole microseconds of at most kMostSum, so that the sum of statistics is exact. Not
// thread-safe.
struct TimeStatistics {
  // The bound of a class exceeds each duration in it by less than this ratio.
  static constexpr double kClassRatio = 1.05;

  // The duration that is next to `seconds`. Requires: `seconds` are not negative.
  static std::uint64_t Microseconds(double seconds) noexcept;

  // Counts one duration. Requires: it is at most kMostSum.
  void Add(std::uint64_t microseconds);
  TimeStatistics& operator+=(const TimeStatistics& other);

  bool Known() const noexcept { return count > 0 || total > 0; }
  // 0 when there is no duration, as Percentile95.
  std::uint64_t Mean() const noexcept { return count == 0 ? 0 : total / count; }
  // 95 % of the durations do not exceed this; at most 5 % above the exact value.
  std::uint64_t Percentile95() const noexcept;

  std::uint64_t count = 0;
  // Of the durations, and of time that belongs to none of them.
  std::uint64_t total = 0;
  std::uint64_t max = 0;
  // How many durations do not exceed a class's bound, and exceed the one before.
  std::map<std::uint64_t, std::uint64_t> classes;
};

}  // namespace tarn::host

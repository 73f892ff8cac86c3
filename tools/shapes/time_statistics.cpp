#include "shapes/time_statistics.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace tarn::host {

void TimeStatistics::Add(double seconds) {
  constexpr double kLeast = 1e-9;
  // Some thirty years: more is a damaged log's.
  constexpr double kMost = 1e9;
  seconds = std::min(seconds, kMost);
  ++count_;
  total_ += seconds;
  max_ = std::max(max_, seconds);
  ++classes_[static_cast<int>(
      std::ceil(std::log(std::max(seconds, kLeast)) / std::log(kClassRatio)))];
}

void TimeStatistics::Add(const TimeStatistics& other) {
  count_ += other.count_;
  total_ += other.total_;
  max_ = std::max(max_, other.max_);
  for (const auto& [power, count] : other.classes_) classes_[power] += count;
}

double TimeStatistics::Mean() const noexcept {
  return count_ == 0 ? 0 : total_ / static_cast<double>(count_);
}

double TimeStatistics::Percentile95() const noexcept {
  // Rounded up: of 19 durations, all.
  const std::uint64_t wanted = count_ - count_ / 20;
  std::uint64_t seen = 0;
  for (const auto& [power, count] : classes_) {
    seen += count;
    if (seen >= wanted) return std::min(max_, std::pow(kClassRatio, power));
  }
  return max_;
}

}  // namespace tarn::host

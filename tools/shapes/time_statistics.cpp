#include "shapes/time_statistics.h"

#include <cassert>
#include <cmath>
#include <vector>

namespace tarn::host {
namespace {

// The bounds of the classes in ascending order, from 0 to kMostSum. They are whole numbers, so that
// every machine computes the same ones.
const std::vector<std::uint64_t>& ClassBounds() {
  static const std::vector<std::uint64_t> bounds = [] {
    constexpr std::uint64_t kStep = 20;
    std::vector<std::uint64_t> made;
    for (std::uint64_t bound = 0; bound < kMostSum;
         bound += std::max(bound / kStep, std::uint64_t{1})) {
      made.push_back(bound);
    }
    made.push_back(kMostSum);
    return made;
  }();
  return bounds;
}

}  // namespace

std::uint64_t TimeStatistics::Microseconds(double seconds) noexcept {
  assert(seconds >= 0);
  constexpr double kMicro = 1e6;
  return static_cast<std::uint64_t>(
      std::round(std::min(seconds * kMicro, static_cast<double>(kMostSum))));
}

void TimeStatistics::Add(std::uint64_t microseconds) {
  total = CappedSum(total, microseconds);
  max = std::max(max, microseconds);
  AddToClass(microseconds, 1);
}

void TimeStatistics::AddToClass(std::uint64_t microseconds, std::uint64_t number) {
  assert(microseconds <= kMostSum);
  count = CappedSum(count, number);
  std::uint64_t& sum =
      classes[*std::lower_bound(ClassBounds().begin(), ClassBounds().end(), microseconds)];
  sum = CappedSum(sum, number);
}

TimeStatistics& TimeStatistics::operator+=(const TimeStatistics& other) {
  total = CappedSum(total, other.total);
  max = std::max(max, other.max);
  for (const auto& [bound, number] : other.classes) AddToClass(bound, number);
  return *this;
}

std::uint64_t TimeStatistics::Percentile95() const noexcept {
  // 95 % of the durations, rounded up: all of 19.
  constexpr std::uint64_t kTwentieth = 20;
  const std::uint64_t wanted = count - count / kTwentieth;
  std::uint64_t seen = 0;
  for (const auto& [bound, number] : classes) {
    seen += number;
    if (seen >= wanted) return std::min(max, bound);
  }
  return max;
}

}  // namespace tarn::host

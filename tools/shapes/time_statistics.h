#pragma once

#include <cstdint>
#include <map>

namespace tarn::host {

// Sums up durations in bounded memory: their values are kept in classes that grow by
// kClassRatio, a few hundred of them between a nanosecond and a year. Not thread-safe.
class TimeStatistics {
 public:
  static constexpr double kClassRatio = 1.05;

  // Counts one duration. Requires: `seconds` are finite and not negative.
  void Add(double seconds);
  // Counts what `other` has counted.
  void Add(const TimeStatistics& other);

  std::uint64_t Count() const noexcept { return count_; }
  // In seconds, as the following; 0 when there is no duration.
  double Total() const noexcept { return total_; }
  double Max() const noexcept { return max_; }
  double Mean() const noexcept;
  // What 95 % of the durations don't exceed, at most 5 % above the exact value.
  double Percentile95() const noexcept;

 private:
  std::uint64_t count_ = 0;
  double total_ = 0;
  double max_ = 0;
  // By the power of kClassRatio that the durations of a class don't exceed.
  std::map<int, std::uint64_t> classes_;
};

}  // namespace tarn::host

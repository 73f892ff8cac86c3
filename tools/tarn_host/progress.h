#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn::host {

// Bytes in the regular files among `files`; 0 when any of them is something else, whose length
// can't be known.
std::uint64_t TotalSize(const std::vector<std::string>& files);

// A bar on standard error that tells how far a command is. It shows nothing unless standard error
// is a terminal and the input is large. Not thread-safe.
class ProgressBar {
 public:
  // `total` as TotalSize tells.
  explicit ProgressBar(std::uint64_t total);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  // Clears the bar away.
  ~ProgressBar();

  // Redraws the bar, if it is time, for `done` bytes of the total.
  void Show(std::uint64_t done);

  // Clears the bar away, to make room for other output.
  void Clear();

 private:
  using Clock = std::chrono::steady_clock;

  std::uint64_t total_;
  bool wanted_;
  bool shown_ = false;
  Clock::time_point next_;
};

}  // namespace tarn::host

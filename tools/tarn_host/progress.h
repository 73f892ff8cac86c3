#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn::host {

// A line on standard error that shows the progress of a command. It appears only if standard error
// is a terminal, the input is not, and the input is larger than 1 MiB or of unknown length. Not
// thread-safe.
class ProgressBar {
 public:
  // `files` are the command's inputs; "-" is standard input.
  explicit ProgressBar(const std::vector<std::string>& files);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  // Erases the line.
  ~ProgressBar();

  // Draws the line again, at most ten times a second: `bytes` of the files were read, with
  // `statements` in them.
  void Show(std::uint64_t bytes, std::uint64_t statements);

  // Erases the line before other output.
  void Clear();

 private:
  using Clock = std::chrono::steady_clock;

  // The length of all files in bytes; nothing if one of them has no length, such as a pipe.
  std::optional<std::uint64_t> total_ = 0;
  bool wanted_;
  bool shown_ = false;
  Clock::time_point next_;
};

}  // namespace tarn::host

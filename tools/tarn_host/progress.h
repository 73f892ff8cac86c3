#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn::host {

// A line on standard error that tells how far a command is. It shows nothing unless standard error
// is a terminal, the input is none, and either large or of a length that can't be known. Not
// thread-safe.
class ProgressBar {
 public:
  // `files` are what the command reads, as Input names them.
  explicit ProgressBar(const std::vector<std::string>& files);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  // Clears the line away.
  ~ProgressBar();

  // Redraws the line, if it is time: `bytes` of the files were read, with `statements` in them.
  void Show(std::uint64_t bytes, std::uint64_t statements);

  // Clears the line away, to make room for other output.
  void Clear();

 private:
  using Clock = std::chrono::steady_clock;

  // Of all files, in bytes; nothing when one of them has no length.
  std::optional<std::uint64_t> total_ = 0;
  bool wanted_;
  bool shown_ = false;
  Clock::time_point next_;
};

}  // namespace tarn::host

#include "tarn_host/progress.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tarn_host/input/file.h"

namespace tarn::host {
namespace {

// Less than this is over before a bar is of use.
constexpr std::uint64_t kLargeInput = std::uint64_t{1} << 20U;
constexpr auto kFirstDelay = std::chrono::milliseconds(500);
constexpr auto kInterval = std::chrono::milliseconds(100);
constexpr std::size_t kBarWidth = 40;

}  // namespace

std::uint64_t TotalSize(const std::vector<std::string>& files) {
  std::uint64_t total = 0;
  for (const std::string& file : files) {
    struct stat status {};
    const int result =
        file == kStandardInput ? fstat(STDIN_FILENO, &status) : stat(file.c_str(), &status);
    if (result != 0 || !S_ISREG(status.st_mode)) return 0;
    total += static_cast<std::uint64_t>(status.st_size);
  }
  return total;
}

ProgressBar::ProgressBar(std::uint64_t total)
    : total_(total),
      wanted_(total >= kLargeInput && isatty(STDERR_FILENO) == 1),
      next_(Clock::now() + kFirstDelay) {}

ProgressBar::~ProgressBar() { Clear(); }

void ProgressBar::Show(std::uint64_t done) {
  if (!wanted_) return;
  const auto now = Clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  shown_ = true;
  const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
  std::string bar(static_cast<std::size_t>(share * static_cast<double>(kBarWidth)), '#');
  bar.resize(kBarWidth, '.');
  constexpr std::uint64_t kMiB = std::uint64_t{1} << 20U;
  std::fprintf(stderr, "\r[%s] %3.0f%% of %llu MiB", bar.c_str(), share * 100,
               static_cast<unsigned long long>(total_ / kMiB));
}

void ProgressBar::Clear() {
  if (!shown_) return;
  shown_ = false;
  // To the start of the line, and erase it.
  std::fputs("\r\x1B[K", stderr);
}

}  // namespace tarn::host

#include "tarn_host/progress.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "logs/input.h"
#include "tarn_host/output.h"

namespace tarn::host {
namespace {

// An input of less is read before a bar is useful.
constexpr std::uint64_t kMiB = std::uint64_t{1} << 20U;
constexpr auto kFirstDelay = std::chrono::milliseconds(500);
constexpr auto kInterval = std::chrono::milliseconds(100);
constexpr int kBarWidth = 30;

}  // namespace

ProgressBar::ProgressBar(const std::vector<std::string>& files)
    : wanted_(isatty(STDERR_FILENO) == 1), next_(Clock::now() + kFirstDelay) {
  for (const std::string& file : files) {
    const bool standard = file == kStandardInput;
    struct stat status {};
    const int result = standard ? fstat(STDIN_FILENO, &status) : stat(file.c_str(), &status);
    if (standard && isatty(STDIN_FILENO) == 1) wanted_ = false;
    if (result == 0 && !S_ISREG(status.st_mode)) {
      total_.reset();
    } else if (total_) {
      *total_ += static_cast<std::uint64_t>(status.st_size);
    }
  }
  wanted_ = wanted_ && total_.value_or(kMiB) >= kMiB;
}

ProgressBar::~ProgressBar() { Clear(); }

void ProgressBar::Show(std::uint64_t bytes, std::uint64_t statements) {
  if (!wanted_) return;
  const auto now = Clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  shown_ = true;
  std::string line = std::to_string(bytes / kMiB);
  if (total_) {
    const double share = std::min(1.0, static_cast<double>(bytes) / static_cast<double>(*total_));
    const std::string bar(static_cast<std::size_t>(share * kBarWidth), '#');
    line = fmt::format("[{:.<{}}] {} % of {}", bar, kBarWidth, static_cast<int>(share * 100),
                       *total_ / kMiB);
  }
  line += fmt::format(" MiB, {} statements", statements);
  // A character in the last column would move the cursor to the next line.
  line = '\r' + Fitted(line, TerminalWidth(STDERR_FILENO) - 1) + "\x1B[K";
  std::fputs(line.c_str(), stderr);
}

void ProgressBar::Clear() {
  if (!shown_) return;
  shown_ = false;
  // Moves the cursor to the start of the line and erases the line.
  std::fputs("\r\x1B[K", stderr);
}

}  // namespace tarn::host

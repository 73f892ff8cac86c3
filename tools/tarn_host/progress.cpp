#include "tarn_host/progress.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "logs/input.h"
#include "tarn_host/output.h"

namespace tarn::host {
namespace {

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20U;
// A smaller input is read before a bar is useful.
constexpr std::uint64_t kLargeInput = kMiB;
constexpr auto kFirstDelay = std::chrono::milliseconds(500);
constexpr auto kInterval = std::chrono::milliseconds(100);
constexpr std::size_t kBarWidth = 30;

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
  wanted_ = wanted_ && total_.value_or(kLargeInput) >= kLargeInput;
}

ProgressBar::~ProgressBar() { Clear(); }

void ProgressBar::Show(std::uint64_t bytes, std::uint64_t statements) {
  if (!wanted_) return;
  const auto now = Clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  shown_ = true;
  std::string line;
  if (total_) {
    const double share = std::min(1.0, static_cast<double>(bytes) / static_cast<double>(*total_));
    line.assign(static_cast<std::size_t>(share * static_cast<double>(kBarWidth)), '#');
    line.resize(kBarWidth, '.');
    const auto percent = static_cast<unsigned>(share * 100);
    line = "[" + line + "] " + std::to_string(percent) + " % of " + std::to_string(*total_ / kMiB);
  } else {
    line = std::to_string(bytes / kMiB);
  }
  line += " MiB, " + std::to_string(statements) + " statements";
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

// Records go to standard error, one line and one write each. A record without a code has "-" for
// it:
//
//   LEVEL CODE FILE:LINE FUNCTION: MESSAGE
//
// TARN_LOG_LEVEL holds the least severe level that is written ("error", "warn", "debug") or "off";
// the default is "warn". It is read for each record. A word that is none of these counts as "warn"
// and is reported once.
//
// There is no lock, since a forked child could inherit it locked. A line of up to PIPE_BUF bytes is
// never mixed with those of other threads and processes; a longer one may be, in a pipe. While a
// pipe is full, only the threads that have a record to write wait for its reader. If the reader has
// gone, the record is lost and the process continues.
#include "platform/log_process.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>

#include "sql/errors.h"

namespace {

// In order of the records that are written, from none to all.
enum Level : std::ptrdiff_t { kOff, kError, kWarn, kDebug };
constexpr std::array<std::string_view, 4> kLevelWords{"off", "error", "warn", "debug"};

std::string Visible(const char* text) {
  return tarn::host::OneLine(text == nullptr ? "(null)" : text);
}

// Takes the SIGPIPE that this thread's write to a pipe without a reader raises, so that it does not
// reach the process. A SIGPIPE that was pending before is still pending afterwards.
class BrokenPipeGuard {
 public:
  BrokenPipeGuard() noexcept {
    sigemptyset(&pipe_signal_);
    sigaddset(&pipe_signal_, SIGPIPE);
    was_waiting_ = IsWaiting();
    pthread_sigmask(SIG_BLOCK, &pipe_signal_, &old_mask_);
  }
  BrokenPipeGuard(const BrokenPipeGuard&) = delete;
  BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;
  ~BrokenPipeGuard() { pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr); }

  // To be called once a write has raised the signal, which is for this thread alone.
  void TakeSignal() noexcept {
    const timespec at_once{};
    // A signal that is pending for the thread is taken before one that is pending for the process.
    TEMP_FAILURE_RETRY(sigtimedwait(&pipe_signal_, nullptr, &at_once));
    // If one was pending for this thread before, the write's signal has merged with it.
    if (was_waiting_ && !IsWaiting()) std::raise(SIGPIPE);
  }

 private:
  static bool IsWaiting() noexcept {
    sigset_t waiting;
    sigpending(&waiting);
    return sigismember(&waiting, SIGPIPE) == 1;
  }

  sigset_t pipe_signal_;
  sigset_t old_mask_;
  bool was_waiting_;
};

// `mark` is the level and the code, for example "WARN -".
void Write(const std::string& mark, const char* message, const LocationInfo& location) {
  const std::string line = mark + ' ' + Visible(location.File()) + ':' +
                           std::to_string(location.Line()) + ' ' + Visible(location.Function()) +
                           ": " + Visible(message) + '\n';
  BrokenPipeGuard guard;
  // One write takes the whole line, unless a signal interrupts it or the disk is full.
  for (std::string_view rest(line); !rest.empty();) {
    const ssize_t written = TEMP_FAILURE_RETRY(write(STDERR_FILENO, rest.data(), rest.size()));
    if (written < 0 && errno == EPIPE) guard.TakeSignal();
    // The log itself has failed, so there is nothing to report this to.
    if (written <= 0) return;
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

// Writes the record if TARN_LOG_LEVEL includes its level.
void Log(Level level, const std::string& mark, const char* message, const LocationInfo& location) {
  // A log call must not change the errno that its caller is about to report.
  const int caller_errno = errno;
  const char* wanted = std::getenv("TARN_LOG_LEVEL");
  if (wanted == nullptr) wanted = "warn";
  auto most = std::find(kLevelWords.begin(), kLevelWords.end(), wanted) - kLevelWords.begin();
  if (most > kDebug) {
    most = kWarn;
    static constinit std::atomic_flag reported;
    if (!reported.test_and_set()) {
      const std::string trouble = std::string("TARN_LOG_LEVEL: \"") + wanted +
                                  "\" is none of off, error, warn, debug; warn is used";
      Write("WARN -", trouble.c_str(), LocationInfo("log_process.cpp", "Log", __LINE__));
    }
  }
  if (level <= most) Write(mark, message, location);
  errno = caller_errno;
}

}  // namespace

LocationInfo::LocationInfo(const char* file, const char* function, int line)
    : file_(file), function_(function), line_(line) {}
LocationInfo::~LocationInfo() {}

void LogProcess::Error(unsigned int code, const char* message, const LocationInfo& location) {
  Log(kError, "ERROR " + std::to_string(code), message, location);
}

void LogProcess::Warn(const char* message, const LocationInfo& location) {
  Log(kWarn, "WARN -", message, location);
}

void LogProcess::Debug(const char* message, const LocationInfo& location) {
  Log(kDebug, "DEBUG -", message, location);
}

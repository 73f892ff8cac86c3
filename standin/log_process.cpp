// Records go to standard error, one line and one write each, with "-" for the code of a record that
// has none:
//
//   LEVEL CODE FILE:LINE FUNCTION: MESSAGE
//
// TARN_LOG_LEVEL holds the least severe level that is written ("error", "warn", "debug") or "off";
// "warn" when unset. It is looked up for each record, and a word that is none of these is reported
// once.
//
// There is no lock, which a forked child might inherit held. Lines of up to PIPE_BUF bytes stay
// whole between threads and processes; a longer one may mix with others in a pipe. While a pipe is
// full, the caller waits for its reader, and nobody else does unless it has a record to write, too.
// Where the reader has gone, the record is lost and the process goes on.
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

// From the least to the most that is written.
enum Level : std::ptrdiff_t { kOff, kError, kWarn, kDebug };
constexpr std::array<std::string_view, 4> kLevelWords{"off", "error", "warn", "debug"};

std::string Visible(const char* text) {
  return tarn::host::OneLine(text == nullptr ? "(null)" : text);
}

// Keeps SIGPIPE from the process while this thread writes to a pipe that nobody reads. Signals that
// were waiting before still are, and no other.
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
    // Takes a thread's own before one of the process.
    TEMP_FAILURE_RETRY(sigtimedwait(&pipe_signal_, nullptr, &at_once));
    // Where one was waiting for this thread, the two were one.
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

// `mark` is the level and the code.
void Write(const std::string& mark, const char* message, const LocationInfo& location) {
  const std::string line = mark + ' ' + Visible(location.File()) + ':' +
                           std::to_string(location.Line()) + ' ' + Visible(location.Function()) +
                           ": " + Visible(message) + '\n';
  BrokenPipeGuard guard;
  // The system takes all at once, unless a signal comes or its disk is full.
  for (std::string_view rest(line); !rest.empty();) {
    const ssize_t written = TEMP_FAILURE_RETRY(write(STDERR_FILENO, rest.data(), rest.size()));
    if (written < 0 && errno == EPIPE) guard.TakeSignal();
    // There is nowhere left to say that the log is lost.
    if (written <= 0) return;
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

// Writes the record if those of its level are wanted.
void Log(Level level, const std::string& mark, const char* message, const LocationInfo& location) {
  // A log call must not change what its caller is about to report.
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

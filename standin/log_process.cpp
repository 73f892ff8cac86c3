// Records go to standard error, one line each, with "-" for the code of a record that has none:
//
//   LEVEL CODE FILE:LINE FUNCTION: MESSAGE
//
// TARN_LOG_LEVEL holds the least severe level that is written ("error", "warn", "debug") or "off";
// "warn" when unset. It is looked up for each record, and a word that is none of these is reported
// once.
#include "platform/log_process.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>

namespace {

// From the least to the most that is written.
enum Level : std::ptrdiff_t { kOff, kError, kWarn, kDebug };
constexpr std::array<std::string_view, 4> kLevelWords{"off", "error", "warn", "debug"};

// The text with every control character as "\xHH", so that it can neither end the line nor steer a
// terminal. Other bytes pass as they are: no character set is implied.
std::string Visible(const char* text) {
  constexpr std::string_view kHexDigits = "0123456789abcdef";
  constexpr unsigned char kDelete = 0x7f;
  std::string visible;
  for (const char c : std::string_view(text == nullptr ? "(null)" : text)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < ' ' || byte == kDelete) {
      visible += {'\\', 'x', kHexDigits[byte >> 4U], kHexDigits[byte & 0xfU]};
    } else {
      visible += c;
    }
  }
  return visible;
}

// `mark` is the level and the code.
void Write(const std::string& mark, const char* message, const LocationInfo& location) {
  const std::string line = mark + ' ' + Visible(location.File()) + ':' +
                           std::to_string(location.Line()) + ' ' + Visible(location.Function()) +
                           ": " + Visible(message) + '\n';
  // Keeps the lines of several threads apart, since a line may take several writes. Processes that
  // share a pipe have no lock in common: lines of more than PIPE_BUF bytes may mix.
  static constinit std::mutex output_lock;
  const std::lock_guard lock(output_lock);
  for (std::string_view rest(line); !rest.empty();) {
    const ssize_t written = TEMP_FAILURE_RETRY(write(STDERR_FILENO, rest.data(), rest.size()));
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
    static constinit std::once_flag reported;
    std::call_once(reported, [&] {
      const std::string trouble = std::string("TARN_LOG_LEVEL: \"") + wanted +
                                  "\" is none of off, error, warn, debug; warn is used";
      Write("WARN -", trouble.c_str(), LocationInfo("log_process.cpp", "Log", __LINE__));
    });
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

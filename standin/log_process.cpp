// Records go to standard error, one line each:
//
//   LEVEL CODE FILE:LINE FUNCTION: MESSAGE
//
// with "-" for the code of a record that has none. TARN_LOG_LEVEL holds the least severe level that
// is written ("error", "warn", "debug") or "off"; "warn" when unset. It is looked up for each
// record, and a word that is none of these is reported once.
#include "platform/log_process.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace {

constexpr const char* kLevelVariable = "TARN_LOG_LEVEL";

// From the least to the most that is written.
enum Level : std::size_t { kOff, kError, kWarn, kDebug };
constexpr std::array<std::string_view, 4> kLevelWords{"off", "error", "warn", "debug"};

// Keeps the lines of several threads apart, since a line may take several writes. Processes that
// share a pipe have no lock in common: lines of more than PIPE_BUF bytes may mix.
constinit std::mutex output_lock;

constinit std::atomic<bool> unknown_level_reported{false};

// Appends the text with every control character as "\xHH", so that it can neither end the line nor
// steer a terminal. Other bytes pass as they are: no character set is implied.
void AppendVisible(std::string& line, std::string_view text) {
  constexpr std::string_view kHexDigits = "0123456789abcdef";
  constexpr unsigned char kDelete = 0x7f;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < ' ' || byte == kDelete) {
      line += {'\\', 'x', kHexDigits[byte >> 4U], kHexDigits[byte & 0xfU]};
    } else {
      line += c;
    }
  }
}

void AppendVisible(std::string& line, const char* text) {
  AppendVisible(line, text == nullptr ? std::string_view("(null)") : std::string_view(text));
}

void WriteRecord(const char* level, std::optional<unsigned int> code, const char* message,
                 const LocationInfo& location) {
  // A log call must not change what its caller is about to report.
  const int caller_errno = errno;
  std::string line(level);
  line += ' ';
  line += code ? std::to_string(*code) : "-";
  line += ' ';
  AppendVisible(line, location.File());
  line += ':';
  line += std::to_string(location.Line());
  line += ' ';
  AppendVisible(line, location.Function());
  line += ": ";
  AppendVisible(line, message);
  line += '\n';
  {
    const std::lock_guard lock(output_lock);
    std::string_view rest(line);
    while (!rest.empty()) {
      const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
      if (written > 0) {
        rest.remove_prefix(static_cast<std::size_t>(written));
      } else if (written == 0 || errno != EINTR) {
        // There is nowhere left to say that the log is lost.
        break;
      }
    }
  }
  errno = caller_errno;
}

// Whether records of that level are written.
bool IsWanted(Level level) {
  const char* wanted = std::getenv(kLevelVariable);
  if (wanted == nullptr) return level <= kWarn;
  const auto* const word = std::find(kLevelWords.begin(), kLevelWords.end(), wanted);
  if (word != kLevelWords.end()) {
    return level <= static_cast<std::size_t>(word - kLevelWords.begin());
  }
  if (!unknown_level_reported.exchange(true)) {
    const std::string message = std::string(kLevelVariable) + ": \"" + wanted +
                                "\" is none of off, error, warn, debug; warn is used";
    WriteRecord("WARN", std::nullopt, message.c_str(),
                LocationInfo("log_process.cpp", __func__, __LINE__));
  }
  return level <= kWarn;
}

}  // namespace

LocationInfo::LocationInfo(const char* file, const char* function, int line)
    : file_(file), function_(function), line_(line) {}
LocationInfo::~LocationInfo() {}

void LogProcess::Error(unsigned int code, const char* message, const LocationInfo& location) {
  if (IsWanted(kError)) WriteRecord("ERROR", code, message, location);
}

void LogProcess::Warn(const char* message, const LocationInfo& location) {
  if (IsWanted(kWarn)) WriteRecord("WARN", std::nullopt, message, location);
}

void LogProcess::Debug(const char* message, const LocationInfo& location) {
  if (IsWanted(kDebug)) WriteRecord("DEBUG", std::nullopt, message, location);
}

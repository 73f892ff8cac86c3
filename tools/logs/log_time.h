#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarn::host {

// A time in a log.
struct LogTime {
  // Since 1970-01-01 00:00:00, both by the clock of the server that wrote the log.
  std::int64_t wall_microseconds = 0;
  // The seconds by which that clock is ahead of UTC; nothing if the log does not give them.
  std::optional<std::int32_t> offset_seconds;

  // Microseconds since 1970-01-01 00:00:00 UTC. A clock of unknown offset is taken for UTC.
  std::int64_t Instant() const noexcept {
    constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
    return wall_microseconds - offset_seconds.value_or(0) * kMicrosecondsPerSecond;
  }
};

// The time by the log's own clock to the second, and its offset if that is known and not 0:
// "2026-11-24 09:05:00", "2026-11-24 09:05:00+01:00". Any thread may call it, and the functions
// below.
std::string FormatLogTime(const LogTime& time);

// Removes the time at the start of `text`, with the fraction and the zone if they follow, and
// returns it: "2026-11-24T09:05:00.123456Z", "2026-11-24 09:05:00.123 CET", "261124  9:05:00".
// Returns nothing if there is no time, or a day or an hour that does not exist: "2026-02-30 ...". A
// zone is an offset or a common abbreviation; with any other the offset is unknown.
std::optional<LogTime> TakeLogTime(std::string_view& text);

// As TakeLogTime, but `text` stays as it is.
inline std::optional<LogTime> LogTimeAt(std::string_view text) { return TakeLogTime(text); }

// Whether `text` begins like `pattern`, in which "9" is any digit: "12:30 x" begins like "99:99".
bool BeginsLike(std::string_view text, std::string_view pattern) noexcept;

}  // namespace tarn::host

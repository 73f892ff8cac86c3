// Times in logs. Any thread may call the functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

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

// Sorts times. Of two times at one instant, the one with the later wall clock is the later:
// 12:00+02:00 is after 10:00Z. No time comes last, and no two different times have the same key.
std::tuple<std::int64_t, std::int64_t, bool> SortKey(const std::optional<LogTime>& time) noexcept;

// Extends the span from `first` to `last` by `time`, if it is known. The order of calls does not
// matter.
void WidenSpan(std::optional<LogTime>& first, std::optional<LogTime>& last,
               const std::optional<LogTime>& time);

// The time by the log's own clock to the second, and its offset if that is known:
// "2026-11-24 09:05:00", "2026-11-24 09:05:00Z", "2026-11-24 09:05:00+01:00".
std::string FormatLogTime(const LogTime& time);

// Removes the time at the start of `text`, with the fraction and the zone if they follow, and
// returns it: "2026-11-24T09:05:00.123456Z", "2026-11-24 09:05:00.123 CET", "261124  9:05:00".
// Returns nothing if there is no time, or a day or an hour that does not exist: "2026-02-30 ...". A
// zone is an offset or a common abbreviation; with any other the offset is unknown.
std::optional<LogTime> TakeLogTime(std::string_view& text);

// Removes a time in seconds since 1970-01-01 00:00:00 UTC from the start of `text` and returns it,
// at offset 0: "1764000000.123". Returns nothing before that time and after the year 9999.
std::optional<LogTime> TakeEpochTime(std::string_view& text);

// As TakeLogTime, but `text` stays as it is.
inline std::optional<LogTime> LogTimeAt(std::string_view text) { return TakeLogTime(text); }

}  // namespace tarn::host

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarn::host {

// When something happened, as a log tells it.
struct LogTime {
  // Since 1970-01-01 00:00:00 of the clock that the log was written by.
  std::int64_t wall_microseconds = 0;
  // How far that clock is ahead of UTC; nothing where the log does not tell.
  std::optional<std::int32_t> offset_seconds;

  // Microseconds since 1970-01-01 00:00:00 UTC. A clock of unknown offset is taken for UTC.
  std::int64_t Instant() const noexcept {
    constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
    return wall_microseconds - offset_seconds.value_or(0) * kMicrosecondsPerSecond;
  }
};

// The time by the log's own clock to the second, with its offset where that is known and not
// UTC's: "2026-11-24 09:05:00", "2026-11-24 09:05:00+01:00". UTC itself is written without an
// offset.
std::string FormatLogTime(const LogTime& time);

// Takes the time at the start of `text` away from it, with its fraction and its zone where they
// follow: "2026-11-24T09:05:00.123456Z", "2026-11-24 09:05:00.123 CET", "261124  9:05:00". Nothing
// when there is none, or none that a calendar has. A zone is an offset or one of the abbreviations
// that PostgreSQL knows; any other leaves the offset untold.
std::optional<LogTime> TakeLogTime(std::string_view& text);

// As TakeLogTime, for a text that stays.
inline std::optional<LogTime> LogTimeAt(std::string_view text) { return TakeLogTime(text); }

// Whether `text` begins as `pattern` does, in which "9" means a digit.
bool BeginsLike(std::string_view text, std::string_view pattern) noexcept;

}  // namespace tarn::host

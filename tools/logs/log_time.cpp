#include "logs/log_time.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "logs/scan.h"

namespace tarn::host {
namespace {

using std::chrono::microseconds;

// The number of two digits at `at`, of which the first may be a blank: " 9" -> 9.
int TwoDigits(std::string_view text, std::size_t at) noexcept {
  constexpr int kTen = 10;
  return (text[at] == ' ' ? 0 : text[at] - '0') * kTen + (text[at + 1] - '0');
}

// Removes a date and a time to the second from `text` and returns it since 1970. Returns nothing if
// there is none.
std::optional<microseconds> TakeSeconds(std::string_view& text) {
  constexpr int kHundred = 100;
  const bool dashes =
      BeginsLike(text, "9999-99-99T99:99:99") || BeginsLike(text, "9999-99-99 99:99:99");
  if (!dashes && !BeginsLike(text, "999999 99:99:99") && !BeginsLike(text, "999999  9:99:99")) {
    return std::nullopt;
  }
  const std::string_view taken = TakeBytes(text, dashes ? 19 : 15);
  const auto number = [taken](std::size_t at) { return TwoDigits(taken, at); };
  const std::size_t end = taken.size();
  // The old form has only the last two digits of a year of this century.
  const int year = dashes ? number(0) * kHundred + number(2) : 20 * kHundred + number(0);
  const auto month = static_cast<unsigned>(number(dashes ? 5 : 2));
  const auto day = static_cast<unsigned>(number(end - 11));
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month),
                                         std::chrono::day(day)};
  const std::chrono::hours hours(number(end - 8));
  const std::chrono::minutes minutes(number(end - 5));
  const std::chrono::seconds seconds(number(end - 2));
  // A leap second has the number 60.
  if (!date.ok() || hours.count() > 23 || minutes.count() > 59 || seconds.count() > 60) {
    return std::nullopt;
  }
  return std::chrono::sys_days(date).time_since_epoch() + hours + minutes + seconds;
}

// Removes a fraction such as ".123456" from `text`. Digits after the sixth do not count.
microseconds TakeFraction(std::string_view& text) noexcept {
  microseconds fraction(0);
  if (!BeginsLike(text, ".9")) return fraction;
  text.remove_prefix(1);
  microseconds worth(100'000);
  for (const char digit : TakeDigits(text)) {
    fraction += (digit - '0') * worth;
    worth /= 10;
  }
  return fraction;
}

// Removes a zone from `text` and returns its seconds ahead of UTC: "Z" -> 0; "+01:00", "+01",
// "+0100" and " CET" -> 3600; an unknown name -> nothing.
std::optional<std::int32_t> TakeZone(std::string_view& text) {
  constexpr std::int32_t kMinute = 60;
  constexpr std::int32_t kHour = 3600;
  static const std::map<std::string_view, int> kZones{
      {"UTC", 0},   {"GMT", 0},   {"WET", 0},  {"Z", 0},    {"WEST", 1}, {"BST", 1},   {"CET", 1},
      {"CEST", 2},  {"EET", 2},   {"EEST", 3}, {"MSK", 3},  {"JST", 9},  {"KST", 9},   {"AEST", 10},
      {"AEDT", 11}, {"NZDT", 13}, {"SAST", 2}, {"HKT", 8},  {"AWST", 8}, {"AKST", -9}, {"AKDT", -8},
      {"HST", -10}, {"EST", -5},  {"EDT", -4}, {"CST", -6}, {"CDT", -5}, {"MST", -7},  {"MDT", -6},
      {"PST", -8},  {"PDT", -7},  {"NZST", 12}};
  std::string_view rest = text;
  TakePrefix(rest, " ");
  if (BeginsLike(rest, "+99") || BeginsLike(rest, "-99")) {
    const int sign = rest[0] == '-' ? -1 : 1;
    std::int32_t seconds = TwoDigits(rest, 1) * kHour;
    rest.remove_prefix(3);
    if (BeginsLike(rest, ":99")) rest.remove_prefix(1);
    if (BeginsLike(rest, "99")) seconds += TwoDigits(TakeBytes(rest, 2), 0) * kMinute;
    text = rest;
    return sign * seconds;
  }
  const auto* const end =
      std::find_if(rest.begin(), rest.end(), [](char c) { return c < 'A' || c > 'Z'; });
  const std::string_view name = TakeBytes(rest, static_cast<std::size_t>(end - rest.begin()));
  if (name.empty()) return std::nullopt;
  text = rest;
  const auto zone = kZones.find(name);
  return zone == kZones.end() ? std::nullopt : std::optional(zone->second * kHour);
}

}  // namespace

std::tuple<std::int64_t, std::int64_t, bool> SortKey(const std::optional<LogTime>& time) noexcept {
  constexpr std::int64_t kLast = std::numeric_limits<std::int64_t>::max();
  if (!time) return {kLast, kLast, false};
  return {time->Instant(), time->wall_microseconds, time->offset_seconds.has_value()};
}

void WidenSpan(std::optional<LogTime>& first, std::optional<LogTime>& last,
               const std::optional<LogTime>& time) {
  if (!time) return;
  if (SortKey(time) < SortKey(first)) first = time;
  if (!last || SortKey(time) > SortKey(last)) last = time;
}

std::optional<LogTime> TakeLogTime(std::string_view& text) {
  std::string_view rest = text;
  const auto seconds = TakeSeconds(rest);
  if (!seconds) return std::nullopt;
  text = rest;
  const microseconds wall = *seconds + TakeFraction(text);
  return LogTime{wall.count(), TakeZone(text)};
}

std::optional<LogTime> TakeEpochTime(std::string_view& text) {
  constexpr double kMicroseconds = 1e6;
  constexpr double kMost = 253'402'300'799;  // 9999-12-31 23:59:59
  const double seconds = TakeNumber<double>(text).value_or(-1);
  if (!(seconds >= 0 && seconds <= kMost)) return std::nullopt;
  return LogTime{std::llround(seconds * kMicroseconds), 0};
}

std::string FormatLogTime(const LogTime& time) {
  constexpr int kMinutesPerHour = 60;
  const auto wall = std::chrono::floor<std::chrono::seconds>(microseconds(time.wall_microseconds));
  std::string text = fmt::format("{:%F %T}", fmt::gmtime(std::time_t{wall.count()}));
  if (!time.offset_seconds) return text;
  if (time.offset_seconds == 0) return text + 'Z';
  const int minutes = std::abs(*time.offset_seconds) / kMinutesPerHour;
  return fmt::format("{}{}{:02}:{:02}", text, *time.offset_seconds < 0 ? '-' : '+',
                     minutes / kMinutesPerHour, minutes % kMinutesPerHour);
}

}  // namespace tarn::host

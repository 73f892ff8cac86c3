#include "logs/log_time.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "sql/text.h"

namespace tarn::host {
namespace {

constexpr std::int32_t kSecondsPerMinute = 60;
constexpr std::int32_t kSecondsPerHour = 3600;
constexpr std::int64_t kSecondsPerDay = 86'400;

// The number of two digits at `at`, of which the first may be a blank: " 9" -> 9.
int TwoDigits(std::string_view text, std::size_t at) noexcept {
  constexpr int kTen = 10;
  return (text[at] == ' ' ? 0 : text[at] - '0') * kTen + (text[at + 1] - '0');
}

// Removes a date and a time to the second from `text` and returns the seconds since 1970-01-01
// 00:00:00. Returns nothing if there are none.
std::optional<std::int64_t> TakeWallSeconds(std::string_view& text) {
  constexpr std::string_view kPattern = "9999-99-99 99:99:99";
  constexpr std::string_view kOldPattern = "999999 99:99:99";
  constexpr int kHundred = 100;
  int year = 0;
  std::size_t month_at = 0;
  std::size_t day_at = 0;
  std::size_t size = 0;
  if (BeginsLike(text, kPattern) || BeginsLike(text, "9999-99-99T99:99:99")) {
    year = TwoDigits(text, 0) * kHundred + TwoDigits(text, 2);
    month_at = 5;
    day_at = 8;
    size = kPattern.size();
  } else if (BeginsLike(text, kOldPattern) || BeginsLike(text, "999999  9:99:99")) {
    constexpr int kCentury = 2000;
    year = kCentury + TwoDigits(text, 0);
    month_at = 2;
    day_at = 4;
    size = kOldPattern.size();
  } else {
    return std::nullopt;
  }
  const std::chrono::year_month_day date{
      std::chrono::year(year), std::chrono::month(static_cast<unsigned>(TwoDigits(text, month_at))),
      std::chrono::day(static_cast<unsigned>(TwoDigits(text, day_at)))};
  const int hour = TwoDigits(text, size - 8);
  const int minute = TwoDigits(text, size - 5);
  const int second = TwoDigits(text, size - 2);
  // A leap second has the number 60.
  if (!date.ok() || hour > 23 || minute > 59 || second > 60) return std::nullopt;
  text.remove_prefix(size);
  const std::int32_t of_day = hour * kSecondsPerHour + minute * kSecondsPerMinute + second;
  return std::chrono::sys_days(date).time_since_epoch().count() * kSecondsPerDay + of_day;
}

// Removes a fraction such as ".123456" from `text` and returns it in microseconds. Digits after the
// sixth do not count.
std::int64_t TakeFraction(std::string_view& text) {
  if (!BeginsLike(text, ".9")) return 0;
  constexpr int kTen = 10;
  std::int64_t digit_worth = 100'000;
  std::int64_t microseconds = 0;
  text.remove_prefix(1);
  for (; !text.empty() && IsDigit(text[0]); text.remove_prefix(1), digit_worth /= kTen) {
    microseconds += digit_worth * (text[0] - '0');
  }
  return microseconds;
}

// Removes a zone from `text` and returns its seconds ahead of UTC: "Z" -> 0; "+01:00", "+01",
// "+0100" and " CET" -> 3600; an unknown name -> nothing.
std::optional<std::int32_t> TakeZone(std::string_view& text) {
  struct Zone {
    std::string_view name;
    int hours;
  };
  static constexpr std::array<Zone, 24> kZones{
      {{"UTC", 0},  {"GMT", 0},   {"WET", 0},   {"Z", 0},    {"WEST", 1}, {"BST", 1},
       {"CET", 1},  {"CEST", 2},  {"EET", 2},   {"EEST", 3}, {"MSK", 3},  {"JST", 9},
       {"KST", 9},  {"AEST", 10}, {"AEDT", 11}, {"EST", -5}, {"EDT", -4}, {"CST", -6},
       {"CDT", -5}, {"MST", -7},  {"MDT", -6},  {"PST", -8}, {"PDT", -7}, {"NZST", 12}}};
  std::string_view rest = text;
  if (rest.starts_with(' ')) rest.remove_prefix(1);
  if (BeginsLike(rest, "+99") || BeginsLike(rest, "-99")) {
    int seconds = TwoDigits(rest, 1) * kSecondsPerHour;
    const int sign = rest[0] == '-' ? -1 : 1;
    rest.remove_prefix(3);
    if (BeginsLike(rest, ":99")) rest.remove_prefix(1);
    if (BeginsLike(rest, "99")) {
      seconds += TwoDigits(rest, 0) * kSecondsPerMinute;
      rest.remove_prefix(2);
    }
    text = rest;
    return sign * seconds;
  }
  std::size_t end = 0;
  while (end < rest.size() && rest[end] >= 'A' && rest[end] <= 'Z') ++end;
  const std::string_view name = rest.substr(0, end);
  const auto* const zone = std::find_if(kZones.begin(), kZones.end(),
                                        [name](const Zone& one) { return one.name == name; });
  if (end > 0) text = rest.substr(end);
  if (zone == kZones.end()) return std::nullopt;
  return zone->hours * kSecondsPerHour;
}

}  // namespace

bool BeginsLike(std::string_view text, std::string_view pattern) noexcept {
  return text.size() >= pattern.size() &&
         std::equal(pattern.begin(), pattern.end(), text.begin(),
                    [](char p, char c) { return p == '9' ? IsDigit(c) : p == c; });
}

std::optional<LogTime> TakeLogTime(std::string_view& text) {
  constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
  const auto seconds = TakeWallSeconds(text);
  if (!seconds) return std::nullopt;
  LogTime time{*seconds * kMicrosecondsPerSecond, std::nullopt};
  time.wall_microseconds += TakeFraction(text);
  time.offset_seconds = TakeZone(text);
  return time;
}

std::string FormatLogTime(const LogTime& time) {
  using std::chrono::days;
  using std::chrono::floor;
  const std::chrono::sys_time<std::chrono::microseconds> wall{
      std::chrono::microseconds(time.wall_microseconds)};
  const auto day = floor<days>(wall);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(floor<std::chrono::seconds>(wall - day));
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  std::string result = text;
  const std::int32_t offset = time.offset_seconds.value_or(0);
  if (offset != 0) {
    constexpr int kMinute = 60;
    const int minutes = std::abs(offset) / kMinute;
    std::snprintf(text, sizeof text, "%c%02d:%02d", offset < 0 ? '-' : '+', minutes / kMinute,
                  minutes % kMinute);
    result += text;
  }
  return result;
}

}  // namespace tarn::host

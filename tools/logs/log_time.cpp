#include "logs/log_time.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

namespace tarn::host {

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

void ExtendSpan(std::optional<LogTime>& first, std::optional<LogTime>& last, const LogTime& time) {
  if (!first || time.Instant() < first->Instant()) first = time;
  if (!last || time.Instant() > last->Instant()) last = time;
}

}  // namespace tarn::host

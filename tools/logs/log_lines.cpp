#include "logs/log_lines.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "sql/dialect.h"
#include "sql/text.h"

namespace tarn::host {


namespace {

// The number of two digits at `at`; the first may be a blank.
int TwoDigits(std::string_view text, std::size_t at) noexcept {
  constexpr int kTen = 10;
  return (text[at] == ' ' ? 0 : text[at] - '0') * kTen + (text[at + 1] - '0');
}

}  // namespace

std::optional<LogTime> TimeAt(std::string_view text) {
  constexpr std::string_view kIsoTime = "9999-99-99T99:99:99";
  constexpr int kHundred = 100;
  constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
  int year = 0;
  std::size_t at = 0;
  if (BeginsLike(text, kIsoTime) || BeginsLike(text, kSpacedTime)) {
    year = TwoDigits(text, 0) * kHundred + TwoDigits(text, 2);
    at = 5;
  } else if (BeginsLike(text, "999999 99:99:99") || BeginsLike(text, "999999  9:99:99")) {
    constexpr int kCentury = 2000;
    year = kCentury + TwoDigits(text, 0);
    at = 2;
  } else {
    return std::nullopt;
  }
  const std::size_t step = at == 2 ? 2 : 3;
  const std::chrono::year_month_day date{
      std::chrono::year(year), std::chrono::month(static_cast<unsigned>(TwoDigits(text, at))),
      std::chrono::day(static_cast<unsigned>(TwoDigits(text, at + step)))};
  if (!date.ok()) return std::nullopt;
  at += 2 * step - (step - 2) + 1;
  const std::int64_t seconds =
      std::chrono::sys_days(date).time_since_epoch().count() * std::int64_t{86400} +
      TwoDigits(text, at) * 3600 + TwoDigits(text, at + 3) * 60 + TwoDigits(text, at + 6);
  return LogTime{seconds * kMicrosecondsPerSecond, std::nullopt};
}

bool IsServerBanner(std::string_view line) noexcept {
  return line.starts_with("Tcp port:") || line.starts_with("TCP Port:") ||
         ((line.starts_with("Time ") || line.starts_with("Time\t")) &&
          line.find(" Command") != kNoPlace) ||
         (line.find(", Version: ") != kNoPlace && line.find("started with:") != kNoPlace);
}

std::size_t LineSplitter::Split(std::string_view text, bool last, Found& found) {
  text_ = text;
  found_ = &found;
  empty_ = empty_ && text.empty();
  while (line_begin_ < text.size()) {
    const std::size_t end = text.find('\n', std::max(line_begin_, searched_));
    if (end == kNoPlace && !last) break;
    const std::size_t line_end = std::min(end, text.size());
    Line(text.substr(line_begin_, line_end - line_begin_));
    line_begin_ = std::min(line_end + 1, text.size());
  }
  if (last) EndEntry();
  searched_ = text.size();
  const std::size_t done = std::min(body_begin_, line_begin_);
  line_begin_ -= done;
  searched_ -= done;
  if (body_begin_ != kNoPlace) body_begin_ -= done;
  return done;
}

}  // namespace tarn::host

#include "logs/log_lines.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "sql/dialect.h"
#include "sql/text.h"

namespace tarn::host {

bool BeginsLike(std::string_view text, std::string_view pattern) noexcept {
  return text.size() >= pattern.size() &&
         std::equal(pattern.begin(), pattern.end(), text.begin(),
                    [](char p, char c) { return p == '9' ? IsDigit(c) : p == c; });
}

std::string TimeAt(std::string_view text) {
  constexpr std::string_view kIsoTime = "9999-99-99T99:99:99";
  if (BeginsLike(text, kIsoTime) || BeginsLike(text, kSpacedTime)) {
    std::string time(text.substr(0, kIsoTime.size()));
    time[10] = ' ';
    return time;
  }
  const bool two_digits = BeginsLike(text, "999999 99:99:99");
  if (!two_digits && !BeginsLike(text, "999999  9:99:99")) return {};
  std::string time = "20";
  time.append(text.substr(0, 2)).append("-").append(text.substr(2, 2)).append("-");
  time.append(text.substr(4, 2)).append(" ").append(text.substr(7, 8));
  if (!two_digits) time[11] = '0';
  return time;
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

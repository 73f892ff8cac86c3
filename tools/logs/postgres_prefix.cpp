#include "logs/postgres_prefix.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "sql/text.h"

namespace tarn::host {
namespace {

std::string_view TakeBytes(std::string_view& text, std::size_t size) noexcept {
  const std::string_view taken = text.substr(0, size);
  text.remove_prefix(taken.size());
  return taken;
}

// Removes a time as "%n" writes it from `text`, in seconds since 1970: "1764000000.123".
std::optional<LogTime> TakeEpoch(std::string_view& text) {
  constexpr double kMicroseconds = 1e6;
  constexpr double kMost = 253'402'300'799;  // 9999-12-31 23:59:59
  double seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc() || !(seconds >= 0) || seconds > kMost) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return LogTime{std::llround(seconds * kMicroseconds), 0};
}

std::size_t CountDigits(std::string_view text) noexcept {
  return std::min(text.find_first_not_of("0123456789"), text.size());
}

}  // namespace

std::string_view SeverityAt(std::string_view text) noexcept {
  constexpr std::size_t kLongest = 40;
  const std::size_t colon = text.substr(0, kLongest).find(":  ");
  if (colon == std::string_view::npos) return {};
  const std::string_view word = text.substr(0, colon);
  return std::all_of(word.begin(), word.end(),
                     [](char c) { return (c >= 'A' && c <= 'Z') || IsDigit(c) || (c & 0x80) != 0; })
             ? word
             : std::string_view();
}

PostgresPrefix::PostgresPrefix(std::string_view format) {
  std::string literal;
  while (!format.empty()) {
    const char c = format[0];
    format.remove_prefix(1);
    if (c != '%') {
      literal += c;
      continue;
    }
    // A field may have a width to which it is padded: "%-10u".
    format.remove_prefix(std::min(format.find_first_not_of("-0123456789"), format.size()));
    if (format.empty()) break;
    if (format[0] == '%') {
      literal += '%';
    } else {
      parts_.push_back({std::exchange(literal, {}), format[0]});
    }
    format.remove_prefix(1);
  }
  parts_.push_back({literal, '\0'});
}

std::optional<std::string_view> PostgresPrefix::Read(std::string_view line,
                                                     PostgresMessage& message) const {
  for (std::size_t index = 0; index < parts_.size(); ++index) {
    const Part& part = parts_[index];
    if (!line.starts_with(part.literal)) return std::nullopt;
    line.remove_prefix(part.literal.size());
    if (part.field == '\0') break;
    if (part.field == 'q') {
      // A process without a session ends its prefix at "%q".
      if (!SeverityAt(line).empty()) return line;
      continue;
    }
    if (part.field == 'm' || part.field == 't' || part.field == 's') {
      const auto time = TakeLogTime(line);
      if (!time) return std::nullopt;
      if (part.field != 's') message.time = time;
      continue;
    }
    if (part.field == 'n') {
      message.time = TakeEpoch(line);
      if (!message.time) return std::nullopt;
      continue;
    }
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    if (part.field == 'p' || part.field == 'l') {
      const std::string_view number = TakeBytes(line, CountDigits(line));
      if (number.empty()) return std::nullopt;
      if (part.field == 'p' && message.session.empty()) message.session = number;
      continue;
    }
    // Any other field ends at the next literal. The last field ends at the first such literal that
    // has a severity after it: "%u@%d " in "a@b c LOG:  x" -> "a" and "b c".
    const Part& next = parts_[index + 1];
    std::size_t end =
        next.literal.empty() ? std::min(line.find(' '), line.size()) : line.find(next.literal);
    while (end != std::string_view::npos && next.field == '\0' && !next.literal.empty() &&
           SeverityAt(line.substr(end + next.literal.size())).empty()) {
      end = line.find(next.literal, end + 1);
    }
    if (end == std::string_view::npos) return std::nullopt;
    const std::string_view value = Trimmed(TakeBytes(line, end));
    if (part.field == 'u') message.user = value;
    if (part.field == 'd') message.database = value;
    if (part.field == 'h') message.host = value;
    // "10.0.0.1(5678)" -> "10.0.0.1"
    if (part.field == 'r') message.host = value.substr(0, value.find('('));
    if (part.field == 'c') message.session = value;
    if (part.field == 'e') message.sqlstate = value;
    if (part.field == 'Q') message.query_id = value;
  }
  if (SeverityAt(line).empty()) return std::nullopt;
  return line;
}

}  // namespace tarn::host

#pragma once

#include <charconv>
#include <cmath>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

#include "logs/splitter.h"
#include "sql/dialect.h"
#include "sql/text.h"

namespace tarn::host {

// What the splitters of the logs that servers write have in common. All functions are thread-safe.

inline constexpr std::size_t kNoPlace = std::string_view::npos;

inline constexpr std::string_view kSpacedTime = "9999-99-99 99:99:99";

// Whether `text` begins as `pattern` does, in which "9" stands for a digit.
bool BeginsLike(std::string_view text, std::string_view pattern) noexcept;

// Takes the number at the start of `text` away from it; nothing when there is none or it is not
// finite or negative.
template <typename Number>
std::optional<Number> TakeNumber(std::string_view& text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  if constexpr (std::is_floating_point_v<Number>) {
    if (!std::isfinite(number) || std::signbit(number)) return std::nullopt;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

// The time at the start of `text`, "2026-11-24T09:05:00", "2026-11-24 09:05:00" or "261124
// 9:05:00", with its fraction and
// offset where they follow; nothing when there is none.
std::optional<LogTime> TimeAt(std::string_view text);

// Whether `line` is one of those that MySQL and MariaDB print when they start.
bool IsServerBanner(std::string_view line) noexcept;

// Goes through the lines of a log. An entry lasts from the place that BeginEntry gives to the line
// that ends it.
class LineSplitter : public Splitter {
 public:
  explicit LineSplitter(const char* name) : name_(name) {}

  std::size_t Split(std::string_view text, bool last, Found& found) final;

  std::string Problem() const final {
    return any_entry_ || empty_ ? std::string() : std::string("holds no entry of a ") + name_;
  }

 protected:
  // Looks at the line that begins at LineBegin(); a carriage return before its end is left there.
  virtual void Line(std::string_view line) = 0;
  // Takes the entry's text, from the place where it began up to the line, if there is one.
  virtual void TakeBody(std::string_view body) = 0;

  std::size_t LineBegin() const noexcept { return line_begin_; }
  Found& Out() const noexcept { return *found_; }
  void AddTime(const std::optional<LogTime>& time) const {
    if (time) ExtendSpan(found_->first_time, found_->last_time, *time);
  }
  void SawEntry() noexcept { any_entry_ = true; }

  bool HasBody() const noexcept { return body_begin_ != kNoPlace; }
  std::string_view Body() const noexcept {
    return Trimmed(text_.substr(body_begin_, line_begin_ - body_begin_));
  }
  void BeginBody(std::size_t at) noexcept { body_begin_ = at; }
  void EndEntry() {
    if (HasBody()) TakeBody(Body());
    body_begin_ = kNoPlace;
  }

 private:
  const char* name_;
  std::string_view text_;
  Found* found_ = nullptr;
  std::size_t body_begin_ = kNoPlace;
  std::size_t line_begin_ = 0;
  // How much of the text is known to hold no further line's end.
  std::size_t searched_ = 0;
  bool any_entry_ = false;
  bool empty_ = true;
};

}  // namespace tarn::host

// Reading a line part by part from its start. Any thread may call the functions.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>
#include <system_error>

#include "sql/text.h"

namespace tarn::host {

// Removes `prefix` from `text`. False if `text` begins in another way.
inline bool TakePrefix(std::string_view& text, std::string_view prefix) noexcept {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

// Removes the first `size` bytes, or all if there are fewer, from `text` and returns them.
inline std::string_view TakeBytes(std::string_view& text, std::size_t size) noexcept {
  const std::string_view taken(text.data(), std::min(size, text.size()));
  text.remove_prefix(taken.size());
  return taken;
}

// Removes the digits at the start of `text` and returns them; there may be none.
inline std::string_view TakeDigits(std::string_view& text) noexcept {
  std::size_t size = 0;
  while (size < text.size() && IsDigit(text[size])) ++size;
  return TakeBytes(text, size);
}

// Removes the number at the start of `text` and returns it. Returns nothing if there is none, or if
// it is too large for its type.
template <typename Number>
std::optional<Number> TakeNumber(std::string_view& text) noexcept {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return error == std::errc() ? std::optional(number) : std::nullopt;
}

// Whether `text` begins like `pattern`, in which "9" is any digit: "12:30 x" begins like "99:99".
inline bool BeginsLike(std::string_view text, std::string_view pattern) noexcept {
  return text.size() >= pattern.size() &&
         std::equal(pattern.begin(), pattern.end(), text.begin(),
                    [](char p, char c) { return p == '9' ? IsDigit(c) : p == c; });
}

}  // namespace tarn::host

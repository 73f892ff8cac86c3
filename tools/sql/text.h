// Classes of bytes, case and trimming, for texts in ASCII or any extension of it.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace tarn::host {

inline bool IsBlank(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr bool IsDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// The lower case of a letter of ASCII; any other byte stays.
constexpr char Lower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline constexpr std::array<bool, 256> kWordBytes = [] {
  std::array<bool, 256> word{};
  for (std::size_t byte = 0; byte < word.size(); ++byte) {
    const char lower = Lower(static_cast<char>(byte));
    word[byte] = (lower >= 'a' && lower <= 'z') || IsDigit(lower) || lower == '_' || lower == '$' ||
                 byte >= 0x80;
  }
  return word;
}();

// A letter, a digit, "_", "$", or a byte of a character beyond ASCII.
inline bool IsWord(char c) noexcept { return kWordBytes[static_cast<unsigned char>(c)]; }

// `text` without blanks at its ends.
inline std::string_view Trimmed(std::string_view text) noexcept {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

// Only letters of ASCII are equal in either case.
inline bool EqualIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return Lower(x) == Lower(y); });
}

}  // namespace tarn::host

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarn::sqlnorm {

namespace internal {

inline constexpr std::uint64_t kFoldCase = 0x2020202020202020;
inline constexpr std::size_t kLetterMask = 0x1F;  // what tells letters of either case apart

// Up to eight letters as one number, the first one lowest.
constexpr std::uint64_t Packed(std::string_view letters) noexcept {
  std::uint64_t packed = 0;
  for (std::size_t i = 0; i < letters.size(); ++i) {
    packed |= std::uint64_t{static_cast<unsigned char>(letters[i])} << (8 * i);
  }
  return packed;
}

}  // namespace internal

// A word that is written in capitals.
struct Keyword {
  std::size_t length = 0;      // in bytes
  std::uint64_t letters = 1;   // in lower case; 1 is no word
  std::uint64_t mask = 0;      // of the bytes that are letters
  std::uint64_t swallows = 0;  // the word of four letters that goes if it follows; or 0
};

namespace internal {

// The keywords by their initials, which all differ.
inline constexpr std::array<Keyword, kLetterMask + 1> kKeywords = [] {
  std::array<Keyword, kLetterMask + 1> keywords{};
  const auto add = [&](std::string_view word, std::string_view swallows = "") {
    const std::uint64_t letters = Packed(word);
    keywords[letters & kLetterMask] = {word.size(), letters,
                                       (std::uint64_t{1} << 8 * word.size()) - 1, Packed(swallows)};
  };
  add("insert", "into");
  add("delete", "from");
  add("select");
  add("from");
  add("update");
  add("where");
  add("values");
  return keywords;
}();

}  // namespace internal

// What bytes that are letters are in lower case, and in capitals.
constexpr std::uint64_t ToLower(std::uint64_t letters) noexcept {
  return letters | internal::kFoldCase;
}
constexpr std::uint64_t ToUpper(std::uint64_t letters) noexcept {
  return letters & ~internal::kFoldCase;
}

// The keyword that a word of `length` bytes is, by its first eight, or null.
inline const Keyword* FindKeyword(std::uint64_t start, std::size_t length) noexcept {
  const std::uint64_t lower = ToLower(start);
  const Keyword& keyword = internal::kKeywords[lower & internal::kLetterMask];
  return (lower & keyword.mask) == keyword.letters && length == keyword.length ? &keyword : nullptr;
}

}  // namespace tarn::sqlnorm

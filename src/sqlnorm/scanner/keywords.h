#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>

namespace tarn::sqlnorm {

namespace internal {

inline constexpr std::uint64_t kFoldCase = 0x2020202020202020;
// Masks off the case of a letter: the rest is its number in the alphabet.
inline constexpr std::size_t kLetterMask = 0x1F;

// Up to seven letters as one number, the first one lowest.
constexpr std::uint64_t Packed(std::string_view letters) noexcept {
  std::uint64_t packed = 0;
  for (std::size_t i = 0; i < letters.size(); ++i) {
    packed |= std::uint64_t{static_cast<unsigned char>(letters[i])} << (8 * i);
  }
  return packed;
}

}  // namespace internal

// A word that the canonical text has in capitals.
struct Keyword {
  std::size_t length = 0;      // in bytes, at most seven
  std::uint64_t letters = 1;   // in lower case; 1 equals no word
  std::uint64_t mask = 0;      // of the bytes that are letters
  std::uint64_t swallows = 0;  // a word of four letters that is dropped if it follows; or 0
};

namespace internal {

// The keywords by their initials, which all differ.
inline constexpr std::array<Keyword, kLetterMask + 1> kKeywords = []() consteval {
  std::array<Keyword, kLetterMask + 1> keywords{};
  const auto add = [&](std::string_view word, std::string_view swallows = "") {
    const std::uint64_t letters = Packed(word);
    Keyword& keyword = keywords[letters & kLetterMask];
    // Evaluated by the compiler, so that a throw stops the build.
    if (word.empty() || word.size() > 7)
      throw std::length_error("a keyword has one to seven letters");
    if (keyword.length != 0) throw std::logic_error("two keywords of one initial");
    if (!swallows.empty() && swallows.size() != 4)
      throw std::length_error("a dropped word has four letters");
    keyword = {word.size(), letters, (std::uint64_t{1} << 8 * word.size()) - 1, Packed(swallows)};
  };
  add("insert", "into");
  add("delete", "from");
  add("select");
  add("from");
  add("update");
  add("where");
  add("values");
  return keywords;
}
();

}  // namespace internal

// Eight bytes in lower case and in capitals. Requires: the bytes that the caller uses are letters.
constexpr std::uint64_t ToLower(std::uint64_t letters) noexcept {
  return letters | internal::kFoldCase;
}
constexpr std::uint64_t ToUpper(std::uint64_t letters) noexcept {
  return letters & ~internal::kFoldCase;
}

// The keyword that equals a word, in either case, or null. `start` is the eight bytes from the
// word's begin on, some of them perhaps after its end, and `length` is the word's length.
inline const Keyword* FindKeyword(std::uint64_t start, std::size_t length) noexcept {
  const std::uint64_t lower = ToLower(start);
  const Keyword& keyword = internal::kKeywords[lower & internal::kLetterMask];
  return (lower & keyword.mask) == keyword.letters && length == keyword.length ? &keyword : nullptr;
}

}  // namespace tarn::sqlnorm

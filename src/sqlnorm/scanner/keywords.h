#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarn::sqlnorm {

namespace internal {

inline constexpr std::uint64_t kFoldCase = 0x2020202020202020;
inline constexpr std::size_t kLetterMask = 0x1F;  // tells letters apart, ignoring their case

// Up to eight letters as one number, the first letter in the lowest byte.
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

// The keywords by their initials. A keyword that this table cannot hold stops the build: one of
// eight letters or more, for its mask would overflow, one that shares its initial with another, and
// one that swallows a word of other than four letters.
inline constexpr std::array<Keyword, kLetterMask + 1> kKeywords = [] {
  std::array<Keyword, kLetterMask + 1> keywords{};
  const auto add = [&](std::string_view word, std::string_view swallows = "") {
    const std::uint64_t letters = Packed(word);
    Keyword& keyword = keywords[letters & kLetterMask];
    if (word.empty() || word.size() >= sizeof letters) throw "a keyword of eight letters or more";
    if (keyword.length != 0) throw "two keywords with one initial";
    if (!swallows.empty() && swallows.size() != 4) throw "a swallowed word has four letters";
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
}();

}  // namespace internal

// Eight letters in lower case, or in capitals. Bytes that are no letters change, too.
constexpr std::uint64_t ToLower(std::uint64_t letters) noexcept {
  return letters | internal::kFoldCase;
}
constexpr std::uint64_t ToUpper(std::uint64_t letters) noexcept {
  return letters & ~internal::kFoldCase;
}

// The keyword that is spelled by a word of `length` bytes, of which `start` holds the first eight;
// null if it is none. LoadEight gives `start`.
inline const Keyword* FindKeyword(std::uint64_t start, std::size_t length) noexcept {
  const std::uint64_t lower = ToLower(start);
  const Keyword& keyword = internal::kKeywords[lower & internal::kLetterMask];
  return (lower & keyword.mask) == keyword.letters && length == keyword.length ? &keyword : nullptr;
}

}  // namespace tarn::sqlnorm

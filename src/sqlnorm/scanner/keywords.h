#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace tarn::sqlnorm {

// The first bytes of a word as one number, the first one lowest.
constexpr std::uint64_t Packed(std::string_view word) noexcept {
  std::uint64_t packed = 0;
  for (std::size_t i = 0; i < word.size(); ++i) {
    packed |= static_cast<std::uint64_t>(static_cast<unsigned char>(word[i])) << (8 * i);
  }
  return packed;
}

namespace internal {

inline constexpr std::uint64_t kFoldCase = 0x2020202020202020;
inline constexpr std::size_t kLetterMask = 0x1F;  // what tells letters of either case apart

constexpr std::uint64_t kInsert = Packed("insert");
constexpr std::uint64_t kDelete = Packed("delete");

// The words that are written in capitals, by their initials, which all differ.
inline constexpr std::array<std::uint64_t, kLetterMask + 1> kKeywords = [] {
  std::array<std::uint64_t, kLetterMask + 1> keywords{};
  for (const std::uint64_t keyword : {kInsert, kDelete, Packed("select"), Packed("from"),
                                      Packed("update"), Packed("where"), Packed("values")}) {
    keywords[keyword & kLetterMask] = keyword;
  }
  return keywords;
}();

// The initials of those that swallow a word behind them, as bits.
inline constexpr std::uint32_t kSwallowing =
    1U << (kInsert & kLetterMask) | 1U << (kDelete & kLetterMask);

// Masks of the lowest bytes, by their number.
inline constexpr std::array<std::uint64_t, sizeof(std::uint64_t) + 1> kLowestBytes = [] {
  std::array<std::uint64_t, sizeof(std::uint64_t) + 1> masks{};
  for (std::size_t i = 1; i < masks.size(); ++i) masks[i] = masks[i - 1] << 8 | 0xFF;
  return masks;
}();

}  // namespace internal

struct WordStart {
  std::uint64_t bytes;  // the word's first eight, in capitals if it is a keyword
  bool swallows;        // whether it is one that the word behind it may go with
};

// Requires: eight bytes can be read at `word`.
inline WordStart StartOfWord(const char* word, std::size_t length) noexcept {
  using namespace internal;
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, word, sizeof bytes);
  const std::uint64_t lower = (bytes | kFoldCase) & kLowestBytes[std::min(length, sizeof bytes)];
  const std::size_t initial = lower & kLetterMask;
  const bool is_keyword = lower == kKeywords[initial];
  const bool may_swallow = (kSwallowing >> initial & 1) != 0;
  return {is_keyword ? bytes & ~kFoldCase : bytes, is_keyword && may_swallow};
}

}  // namespace tarn::sqlnorm

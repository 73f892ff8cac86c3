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

// The words that are written in capitals, in either case here.
inline constexpr std::uint64_t kInsert = Packed("insert");
inline constexpr std::uint64_t kDelete = Packed("delete");
inline constexpr std::array kKeywords{kInsert,         kDelete,          Packed("select"),
                                      Packed("from"),  Packed("update"), Packed("where"),
                                      Packed("values")};

namespace internal {

inline constexpr std::uint64_t kFoldCase = 0x2020202020202020;
inline constexpr std::size_t kLetterMask = 0x1F;  // what tells letters of either case apart

// The keywords by their initials, which all differ.
inline constexpr std::array<std::uint64_t, kLetterMask + 1> kByInitial = [] {
  std::array<std::uint64_t, kLetterMask + 1> by_initial{};
  for (const std::uint64_t keyword : kKeywords) by_initial[keyword & kLetterMask] = keyword;
  return by_initial;
}();

// Masks of the lowest bytes, by their number.
inline constexpr std::array<std::uint64_t, sizeof(std::uint64_t) + 1> kLowestBytes = [] {
  std::array<std::uint64_t, sizeof(std::uint64_t) + 1> masks{};
  for (std::size_t i = 1; i < masks.size(); ++i) masks[i] = masks[i - 1] << 8 | 0xFF;
  return masks;
}();

}  // namespace internal

struct WordStart {
  std::uint64_t bytes;    // the word's first eight, in capitals if it is a keyword
  std::uint64_t keyword;  // one of kKeywords, or 0
};

// Requires: eight bytes can be read at `word`. Free of branches.
inline WordStart StartOfWord(const char* word, std::size_t length) noexcept {
  using namespace internal;
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, word, sizeof bytes);
  const std::uint64_t lower = (bytes | kFoldCase) & kLowestBytes[std::min(length, sizeof bytes)];
  const std::uint64_t candidate = kByInitial[lower & kLetterMask];
  const bool is_keyword = lower == candidate;
  return {is_keyword ? bytes & ~kFoldCase : bytes, is_keyword ? candidate : 0};
}

}  // namespace tarn::sqlnorm

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/byte_class.h"

namespace tarn::sqlnorm {

// Whether the word from `begin` to `end` is an alias: a lower-case "t" and digits, for example
// "t12".
inline bool IsAlias(const char* begin, const char* end) noexcept {
  // One branch for both bytes, since few words pass either test.
  if ((static_cast<int>(*begin == 't') & static_cast<int>(IsDigit(begin[1]))) == 0) return false;
  return SkipDigits(begin + 2) == end;
}

// Numbers the distinct aliases of one text from 1, in order of first appearance. Aliases are
// compared as texts: "t1" and "t01" are two.
//
// Up to kInPlace aliases are compared one by one. If there are more, all aliases of the rest of the
// text are collected and sorted once, and each later number is read from an array. So the text
// can't steer the cost of a lookup, and the order of its aliases costs no cache misses.
class AliasTable {
 public:
  // Borrows the padded text that ends at `text_end`.
  explicit AliasTable(const char* text_end) noexcept : text_end_(text_end) {}

  // The number of the alias from `begin` to `end`, a new one if it has not been seen. Throws
  // std::bad_alloc.
  //
  // Requires: called for each alias of the text that VisitElements visits, from the first to the
  // last.
  std::uint32_t NumberOf(const char* begin, const char* end) {
    if (next_ != 0) return numbers_[next_++];
    const Name name{begin, static_cast<std::size_t>(end - begin)};
    const std::uint64_t packed = Packed(name);
    for (std::uint32_t i = 0; i < count_; ++i) {
      if (packed_[i] == packed && (name.length < kPackedBytes || names_[i] == name)) return i + 1;
    }
    if (count_ == kInPlace) {
      NumberRest(begin);
      return numbers_[next_++];
    }
    packed_[count_] = packed;
    names_[count_] = name;
    return ++count_;
  }

  // The number of distinct aliases so far; in the whole text once there are more than kInPlace.
  std::uint32_t Count() const noexcept { return count_; }

 private:
  static constexpr std::uint32_t kInPlace = 16;
  static constexpr std::size_t kPackedBytes = sizeof(std::uint64_t);

  // Unlike std::string_view, left uninitialised until it is needed.
  struct Name {
    const char* text;
    std::size_t length;

    bool operator==(const Name& other) const noexcept {
      return std::string_view(text, length) == std::string_view(other.text, other.length);
    }
  };

  // The first eight bytes of an alias as a number. A shorter alias is filled up with NUL bytes,
  // which no alias contains, so that no other alias has its number.
  static std::uint64_t Packed(const Name& alias) noexcept {
    const std::uint64_t bytes = LoadEight(alias.text);
    if (alias.length >= kPackedBytes) return bytes;
    return bytes & ((std::uint64_t{1} << (8 * alias.length)) - 1);
  }

  // Numbers all aliases from `begin` to the end of the text.
  void NumberRest(const char* begin);

  const char* const text_end_;
  std::uint32_t count_ = 0;
  std::array<std::uint64_t, kInPlace> packed_;
  std::array<Name, kInPlace> names_;
  // Empty as long as kInPlace aliases suffice. Then the numbers of these, and after them the number
  // of each further alias of the text, in order of appearance.
  std::vector<std::uint32_t> numbers_;
  // The position in numbers_ of the next alias's number; 0 while numbers_ is empty.
  std::size_t next_ = 0;
};

}  // namespace tarn::sqlnorm

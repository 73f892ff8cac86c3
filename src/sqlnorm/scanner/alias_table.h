#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string_view>

namespace tarn::sqlnorm {

// Numbers the distinct aliases of one text from 1, in order of first appearance. Aliases are
// compared as texts: "t1" and "t01" are two. The texts are borrowed and must outlive the table.
//
// The first few short aliases are compared one by one. All others go to an ordered map, which
// allocates for each distinct alias: whoever writes the text can't make a lookup cost more than the
// logarithm of their number, times at most the length of the alias looked up.
class AliasTable {
 public:
  // The number of `alias`, a new one if it has not been seen. Requires: 8 bytes can be read at its
  // first. Throws std::bad_alloc.
  std::uint32_t NumberOf(std::string_view alias) {
    if (alias.size() > sizeof(std::uint64_t)) return NumberInMap(alias);
    const std::uint64_t packed = Packed(alias);
    for (std::uint32_t i = 0; i < in_place_; ++i) {
      if (packed_[i] == packed) return numbers_[i];
    }
    if (in_place_ == kInPlace) return NumberInMap(alias);
    packed_[in_place_] = packed;
    return numbers_[in_place_++] = ++count_;
  }

  // How many distinct aliases there have been.
  std::uint32_t Count() const noexcept { return count_; }

 private:
  static constexpr std::uint32_t kInPlace = 16;

  // The text as a number; an alias holds no NUL byte, so no two are the same.
  static std::uint64_t Packed(std::string_view alias) noexcept {
    std::uint64_t packed = 0;
    std::memcpy(&packed, alias.data(), sizeof packed);
    // Little-endian: the first byte is the lowest, and those behind the alias go.
    const std::size_t surplus_bits = 8 * (sizeof packed - alias.size());
    return packed << surplus_bits >> surplus_bits;
  }
  std::uint32_t NumberInMap(std::string_view alias);

  std::array<std::uint64_t, kInPlace> packed_;
  std::array<std::uint32_t, kInPlace> numbers_;
  std::uint32_t in_place_ = 0;
  std::uint32_t count_ = 0;
  std::map<std::string_view, std::uint32_t> map_;
};

}  // namespace tarn::sqlnorm

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "sqlnorm/scanner/byte_block.h"

namespace tarn::sqlnorm {

// Numbers the distinct aliases of one text from 1, in order of first appearance. Aliases are
// compared as texts: "t1" and "t01" are two. The texts are borrowed and must outlive the table.
//
// The first few short aliases are compared one by one. Further short ones go to a tree of digits,
// long ones to an ordered map, so that whoever writes the text can't steer what a lookup costs: one
// step a digit, or the logarithm of the number of long aliases times at most the alias's length.
class AliasTable {
 public:
  // The number of `alias`, a new one if it has not been seen. Requires: a "t" and digits, of which
  // 8 bytes can be read at the first. Throws std::bad_alloc.
  std::uint32_t NumberOf(std::string_view alias) {
    if (alias.size() > sizeof(std::uint64_t)) return Number(FurtherAliases().long_ones[alias]);
    const std::uint64_t packed = Packed(alias);
    for (std::uint32_t i = 0; i < in_place_; ++i) {
      if (packed_[i] == packed) return numbers_[i];
    }
    if (in_place_ == kInPlace) return Number(FurtherAliases().OfDigits(alias.substr(1)));
    packed_[in_place_] = packed;
    return Number(numbers_[in_place_++] = 0);
  }

  // How many distinct aliases there have been.
  std::uint32_t Count() const noexcept { return count_; }

 private:
  static constexpr std::uint32_t kInPlace = 16;

  struct Further {
    struct Node {
      std::array<std::uint32_t, 10> next{};  // by the next digit; 0 where there is none
      std::uint32_t number = 0;              // of the alias that ends here
    };

    std::uint32_t& OfDigits(std::string_view digits) {
      std::size_t at = 0;
      for (const char digit : digits) {
        const auto branch = static_cast<std::size_t>(digit - '0');
        if (tree[at].next[branch] == 0) {
          tree[at].next[branch] = static_cast<std::uint32_t>(tree.size());
          tree.emplace_back();
        }
        at = tree[at].next[branch];
      }
      return tree[at].number;
    }

    std::vector<Node> tree{1};
    std::map<std::string_view, std::uint32_t> long_ones;
  };

  Further& FurtherAliases() {
    if (!further_) further_ = std::make_unique<Further>();
    return *further_;
  }

  // The number kept in `kept`, which is 0 for an alias that is new.
  std::uint32_t Number(std::uint32_t& kept) noexcept {
    if (kept == 0) kept = ++count_;
    return kept;
  }

  // A text of up to 8 bytes as a number; an alias holds no NUL byte, so no two are the same.
  static std::uint64_t Packed(std::string_view alias) noexcept {
    // Those behind the alias go.
    const std::size_t surplus_bits = 8 * (sizeof(std::uint64_t) - alias.size());
    return LoadEight(alias.data()) << surplus_bits >> surplus_bits;
  }

  std::array<std::uint64_t, kInPlace> packed_;
  std::array<std::uint32_t, kInPlace> numbers_;
  std::uint32_t in_place_ = 0;
  std::uint32_t count_ = 0;
  std::unique_ptr<Further> further_;
};

}  // namespace tarn::sqlnorm

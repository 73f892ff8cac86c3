#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <unordered_map>

namespace tarn::sqlnorm {

// Numbers the distinct aliases of one text from 1, in order of first appearance. Aliases are
// compared as texts: "t1" and "t01" are two. The texts are borrowed and must outlive the table.
//
// The first few short aliases are compared one by one; beyond, a hash table takes over, which
// allocates for each distinct alias. Its hash is keyed, so that no text written beforehand makes
// the work grow faster than the text.
class AliasTable {
 public:
  // The number of `alias`, a new one if it has not been seen. At least 8 bytes must be readable at
  // its first. Throws std::bad_alloc.
  std::uint32_t NumberOf(std::string_view alias) {
    if (alias.size() > sizeof(std::uint64_t)) return NumberOfMany(alias);
    const std::uint64_t key = Key(alias);
    for (std::uint32_t i = 0; i < few_count_; ++i) {
      if (few_[i] == key) return few_numbers_[i];
    }
    if (few_count_ == kFew) return NumberOfMany(alias);
    few_[few_count_] = key;
    return few_numbers_[few_count_++] = ++count_;
  }

  // How many distinct aliases there have been.
  std::uint32_t Count() const noexcept { return count_; }

 private:
  static constexpr std::uint32_t kFew = 16;

  struct KeyedHash {
    std::size_t operator()(std::string_view alias) const noexcept;
  };

  using Many = std::unordered_map<std::string_view, std::uint32_t, KeyedHash>;

  // The text as a number; an alias holds no NUL byte, so no two are the same.
  static std::uint64_t Key(std::string_view alias) noexcept {
    std::uint64_t key = 0;
    std::memcpy(&key, alias.data(), sizeof key);
    // Little-endian: the first byte is the lowest, and those behind the alias go.
    const std::size_t surplus_bits = 8 * (sizeof key - alias.size());
    return key << surplus_bits >> surplus_bits;
  }
  std::uint32_t NumberOfMany(std::string_view alias);

  std::array<std::uint64_t, kFew> few_;
  std::array<std::uint32_t, kFew> few_numbers_;
  std::uint32_t few_count_ = 0;
  std::uint32_t count_ = 0;
  std::unique_ptr<Many> many_;
};

}  // namespace tarn::sqlnorm

#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "sqlnorm/byte_class.h"

namespace tarn::sqlnorm {

// Sixteen bytes that are compared at once. Comparisons give 0xFF for true and 0 for false, byte by
// byte (the vector extension of GCC and clang); every processor's vector instructions do.
using ByteBlock = unsigned char __attribute__((vector_size(16)));

// The sixteen bytes at `p`, of a padded text.
inline ByteBlock LoadBlock(const char* p) noexcept {
  ByteBlock block;
  std::memcpy(&block, p, sizeof block);
  return block;
}

// The first place at or after `p` that `match` marks, or `end`. match(q) looks at the sixteen
// places from q on, which may lie in the padding, and returns a ByteBlock.
template <typename Match>
const char* FindByBlock(const char* p, const char* end, Match match) noexcept {
  static_assert(std::endian::native == std::endian::little, "the first byte is the lowest");
  for (; p < end; p += sizeof(ByteBlock)) {
    const ByteBlock marks = match(p);
    std::uint64_t halves[2];
    std::memcpy(halves, &marks, sizeof halves);
    if ((halves[0] | halves[1]) == 0) continue;
    const int bit = halves[0] != 0 ? std::countr_zero(halves[0]) : 64 + std::countr_zero(halves[1]);
    const char* const found = p + bit / 8;
    return found < end ? found : end;
  }
  return end;
}

}  // namespace tarn::sqlnorm

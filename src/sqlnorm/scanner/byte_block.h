#pragma once

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "sqlnorm/scanner/byte_class.h"

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

// One bit for each byte of `marks`, the first one lowest.
inline std::uint32_t BitsOf(ByteBlock marks) noexcept {
#ifdef __SSE2__
  return static_cast<std::uint32_t>(_mm_movemask_epi8(reinterpret_cast<__m128i>(marks)));
#else
  // The product gathers the lowest bits of eight bytes in its highest byte.
  const auto gather = [](std::uint64_t half) {
    return static_cast<std::uint32_t>((half & 0x0101010101010101) * 0x0102040810204080 >> 56);
  };
  std::uint64_t halves[2];
  std::memcpy(halves, &marks, sizeof halves);
  return gather(halves[0]) | gather(halves[1]) << 8;
#endif
}

// What the bytes of a long block are: one bit for each, the first one lowest.
struct BlockClasses {
  static constexpr std::size_t kBytes = 64;

  std::uint64_t words = 0;   // letters, digits and the underscore
  std::uint64_t digits = 0;  // among them
  std::uint64_t spaces = 0;
};

// Classifies the 64 bytes at `p`, of a padded text.
inline BlockClasses ClassifyBlock(const char* p) noexcept {
  BlockClasses classes;
  for (std::size_t at = 0; at < BlockClasses::kBytes; at += sizeof(ByteBlock)) {
    const ByteBlock block = LoadBlock(p + at);
    const ByteBlock digits = block - '0' < 10;
    const ByteBlock letters = ((block | 0x20) - 'a' < 26) | (block == '_');
    const ByteBlock spaces = (block == ' ') | (block - '\t' < 5);
    classes.words |= std::uint64_t{BitsOf(digits | letters)} << at;
    classes.digits |= std::uint64_t{BitsOf(digits)} << at;
    classes.spaces |= std::uint64_t{BitsOf(spaces)} << at;
  }
  return classes;
}

// The first place at or after `p` that `match` marks, or `end`. match(q) looks at the sixteen
// places from q on, which may lie in the padding, and returns a ByteBlock.
template <typename Match>
const char* FindByBlock(const char* p, const char* end, Match match) noexcept {
  static_assert(std::endian::native == std::endian::little, "the first byte is the lowest");
  for (; p < end; p += sizeof(ByteBlock)) {
    const std::uint32_t bits = BitsOf(match(p));
    if (bits == 0) continue;
    const char* const found = p + std::countr_zero(bits);
    return found < end ? found : end;
  }
  return end;
}

}  // namespace tarn::sqlnorm

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

// Sixteen bytes that are compared at once: a comparison gives a block that holds 0xFF for each byte
// where it is true and 0 where it is false (the vector extension of GCC and clang).
using ByteBlock = unsigned char __attribute__((vector_size(16)));

// The sixteen bytes at `p`, of a padded text.
inline ByteBlock LoadBlock(const char* p) noexcept {
  ByteBlock block;
  std::memcpy(&block, p, sizeof block);
  return block;
}

// Converts between eight bytes as the processor loads them and a number whose lowest byte is the
// first one, whatever the processor's byte order.
inline std::uint64_t FirstByteLowest(std::uint64_t bytes) noexcept {
  return std::endian::native == std::endian::big ? __builtin_bswap64(bytes) : bytes;
}

// Loads the eight bytes at `p` as one number, the first one lowest. Requires: they can be read.
inline std::uint64_t LoadEight(const char* p) noexcept {
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, p, sizeof bytes);
  return FirstByteLowest(bytes);
}

// Stores a number as eight bytes, the lowest one first. Requires: they can be written.
inline void StoreEight(std::uint64_t number, char* p) noexcept {
  const std::uint64_t bytes = FirstByteLowest(number);
  std::memcpy(p, &bytes, sizeof bytes);
}

// Pads the text that ends at `end`. It does not call std::memset, of which compilers make a string
// instruction that takes longer to start than this takes in all.
inline void Pad(char* end) noexcept {
  static_assert(kPadding % sizeof(ByteBlock) == 0);
  constexpr ByteBlock kZero{};
  for (std::size_t at = 0; at < kPadding; at += sizeof kZero) {
    std::memcpy(end + at, &kZero, sizeof kZero);
  }
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
  char bytes[sizeof marks];
  std::memcpy(bytes, &marks, sizeof marks);
  return gather(LoadEight(bytes)) | gather(LoadEight(bytes + 8)) << 8;
#endif
}

// The classes of the 64 bytes of a long block: one bit for each byte, the first one lowest.
struct BlockClasses {
  static constexpr std::size_t kBytes = 64;

  std::uint64_t words = 0;   // letters, digits and the underscore
  std::uint64_t digits = 0;  // the digits among them
  std::uint64_t spaces = 0;
};

// `bits` without those of bytes at or after `length`.
inline std::uint64_t BitsWithin(std::uint64_t bits, std::ptrdiff_t length) noexcept {
  constexpr auto kBytes = static_cast<std::ptrdiff_t>(BlockClasses::kBytes);
  return length < kBytes ? bits & ((std::uint64_t{1} << length) - 1) : bits;
}

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

// Marks parentheses; a `match` for MarkedBits and VisitMarks.
inline ByteBlock MarkParentheses(const char* q) noexcept {
  const ByteBlock block = LoadBlock(q);
  return (block == '(') | (block == ')');
}

// One bit for each of the 64 bytes at `p`, set if `match` marks the byte. match(q) reads the
// sixteen bytes at q, and perhaps a few after them, and returns a ByteBlock. It must not mark NUL,
// so that nothing is found after the end of a padded text.
template <typename Match>
std::uint64_t MarkedBits(const char* p, Match match) noexcept {
  std::uint64_t bits = 0;
  for (std::size_t at = 0; at < BlockClasses::kBytes; at += sizeof(ByteBlock)) {
    bits |= std::uint64_t{BitsOf(match(p + at))} << at;
  }
  return bits;
}

// Calls visit(p) for each byte of a padded text that `match` marks, from the first to the last.
// visit returns the position up to which it has processed the text; marks before it are skipped.
template <typename Match, typename Visit>
void VisitMarks(const char* text, const char* end, Match match, Visit visit) {
  const char* done = text;
  for (const char* block = text; block < end; block += BlockClasses::kBytes) {
    std::uint64_t marks = MarkedBits(block, match);
    for (; marks != 0; marks &= marks - 1) {
      const char* const p = block + std::countr_zero(marks);
      if (p >= done) done = visit(p);
    }
  }
}

}  // namespace tarn::sqlnorm

// Finds the words and the single signs of a text.
//
// A word is a run of letters, digits and underscores, except that leading digits are a word of
// their own (digit-letter split): 10x is the words 10 and x. A sign is any other byte that is no
// white space.
//
// VisitElements calls a visitor for each element of a text, from the first to the last:
//
//   visitor.Word(begin, end)    a word
//   visitor.Sign(sign, taken)   a sign, of one byte; between `taken` and it there are only spaces
//
// Both return the position up to which the visitor has taken the text: the element's end, or a
// later position that is not within a word. Elements that begin before it are skipped. Requires:
// the text is padded.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/byte_class.h"

namespace tarn::sqlnorm {

// The end of the word that begins at `p`.
inline const char* WordEnd(const char* p) noexcept {
  return IsDigit(*p) ? SkipDigits(p) : SkipWord(p);
}

// Finds elements by masks of 64 bytes, so that neither the length of a word nor that of white space
// costs an unpredictable branch. The masks have one bit for each byte, drawn here with the first
// byte on the left:
//
//   text             select  a1, 10x, b_2 <= c
//   words            111111  11  111  111    1
//   digits                    1  11     1
//   first of words   1       1   1    1      1
//   leading digits               11
//   splits                         1               a word after its leading digits
//   begins           1       1 1 1 11 1   11 1     of words and signs
//
// A word that crosses the end of a block is followed byte by byte. The next block's masks may mark
// bytes of that word, but they are before the position up to which the text has been taken.
template <typename Visitor>
void VisitElements(const char* text, std::size_t length, Visitor& visitor) {
  const char* const end = text + length;
  const char* taken = text;
  for (const char* block = text; block < end; block += BlockClasses::kBytes) {
    const auto [words, digits, spaces] = ClassifyBlock(block);
    const std::uint64_t first_of_words = words & ~(words << 1);
    // One, added to the first digit of a run, carries to the byte after the last.
    const std::uint64_t after_leading_digits = (digits + (first_of_words & digits)) & ~digits;
    const std::uint64_t splits = after_leading_digits & words;
    const std::uint64_t word_ends = ~words | splits;
    std::uint64_t begins = BitsWithin(first_of_words | splits | ~(words | spaces), end - block);
    for (; begins != 0; begins &= begins - 1) {
      const int at = std::countr_zero(begins);
      const char* const p = block + at;
      if (p < taken) continue;
      if ((words >> at & 1) == 0) {
        taken = visitor.Sign(p, taken);
        continue;
      }
      const std::uint64_t ends_after = word_ends >> at >> 1;
      const char* word_end = p + 1 + std::countr_zero(ends_after);
      if (ends_after == 0) [[unlikely]]
        word_end = WordEnd(p);
      taken = visitor.Word(p, word_end);
    }
  }
}

}  // namespace tarn::sqlnorm

#pragma once

#include <cstddef>

#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// Marks each byte that may be the last digit before the dot of a decimal or the 0 before the x of a
// hexadecimal. It tests only the upper half of a byte, which digits share with : ; < = > and ?, so
// it marks some bytes needlessly: for example the < of "<.5".
inline ByteBlock MarkLiteralCandidates(const char* q) noexcept {
  const auto is_digit = [](ByteBlock block) { return (block & 0xF0) == 0x30; };
  const ByteBlock next = LoadBlock(q + 1);
  return is_digit(LoadBlock(q)) &
         (((next == '.') & is_digit(LoadBlock(q + 2))) | ((next | 0x20) == 'x'));
}

// Prints every decimal and hexadecimal literal of the padded text `source` anew: a decimal as its
// value in double precision with up to 17 significant digits ("%.17g" of the classic locale), a
// hexadecimal as its value in decimal. Returns the new text, padded: `source` itself if it has no
// literal, otherwise one in `output`. One pass. Throws boost::bad_lexical_cast for a decimal beyond
// the range of double, std::bad_alloc.
//
// Requires: no literal's candidate, as MarkLiteralCandidates marks them, is before `first`.
Text CanonicalizeLiterals(Text source, const char* first, WorkingBuffer& output);

// Throws boost::bad_lexical_cast if a decimal of the padded text is beyond the range of double.
// Requires: the byte before the text belongs to no word, for example a parenthesis.
void CheckDecimalRanges(const char* text, std::size_t length);

}  // namespace tarn::sqlnorm

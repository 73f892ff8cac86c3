#pragma once

#include <cstddef>

#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// Marks what a literal may hang on: a digit before a dot and another digit, or before an x. Digits
// are told by their upper half, which they share with : ; < = > and ?; a closer look follows.
inline ByteBlock MarkLiteralCandidates(const char* q) noexcept {
  const auto is_digit = [](ByteBlock block) { return (block & 0xF0) == 0x30; };
  const ByteBlock next = LoadBlock(q + 1);
  return is_digit(LoadBlock(q)) &
         (((next == '.') & is_digit(LoadBlock(q + 2))) | ((next | 0x20) == 'x'));
}

// Prints every decimal and hexadecimal literal of the padded text `source` anew: a decimal as its
// value in double precision with up to 17 significant digits ("%.17g" of the classic locale), a
// hexadecimal as its value in decimal. Returns the new text, padded: `source` itself if it has no
// literal, else one that lies in `output`. One pass. Throws boost::bad_lexical_cast for a decimal
// beyond the range of double, std::bad_alloc.
//
// Requires: `first` is not behind the first literal.
Text CanonicalizeLiterals(Text source, const char* first, WorkingBuffer& output);

// Throws boost::bad_lexical_cast if a decimal of the padded text is beyond the range of double.
// Requires: the text is the rest of one that was cut behind a byte that belongs to no word.
void CheckDecimalRanges(const char* text, std::size_t length);

}  // namespace tarn::sqlnorm

#pragma once

#include <cstddef>

#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// Prints every decimal and hexadecimal literal of the padded text `source` anew: a decimal as its
// value in double precision with up to 17 significant digits ("%.17g" of the classic locale), a
// hexadecimal as its value in decimal. Returns the new text, padded: `source` itself if it has no
// literal, else one that lies in `output`. One pass. Throws boost::bad_lexical_cast for a decimal
// beyond the range of double, std::bad_alloc.
Text CanonicalizeLiterals(Text source, WorkingBuffer& output);

// Throws boost::bad_lexical_cast if a decimal of the padded text is beyond the range of double.
// Requires: the text is the rest of one that was cut behind a byte that belongs to no word.
void CheckDecimalRanges(const char* text, std::size_t length);

}  // namespace tarn::sqlnorm

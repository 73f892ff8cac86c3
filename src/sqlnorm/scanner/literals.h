#pragma once

#include <cstddef>

#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// The text being rewritten. One of up to about a kilobyte needs no heap block.
using WorkingBuffer = TextBuffer<1024>;

// Prints every decimal and hexadecimal literal of the padded text in `working` anew: a decimal as
// its value in double precision with up to 17 significant digits ("%.17g" of the classic locale), a
// hexadecimal as its value in decimal. Returns the new length; the text is padded again. One pass.
// Throws boost::bad_lexical_cast for a decimal beyond the range of double, std::bad_alloc.
std::size_t CanonicalizeLiterals(WorkingBuffer& working, std::size_t length);

}  // namespace tarn::sqlnorm

#pragma once

#include <cstddef>
#include <string_view>

#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// The canonical text in the making. One of up to about two kilobytes needs no heap block.
using OutputBuffer = TextBuffer<2048>;

// Spaces the tokens of a padded text of `length` bytes, writes the keywords in capitals, joins dots
// and commas, numbers the aliases, drops a single alias's qualifiers and trims the ends. The result
// lies in `output`. One pass, and another over the result if it has just one alias. Throws
// std::bad_alloc.
std::string_view WriteTokens(const char* text, std::size_t length, OutputBuffer& output);

}  // namespace tarn::sqlnorm

#pragma once

#include <string_view>

#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// Spaces the tokens of a padded text, writes the keywords in capitals, joins dots
// and commas, numbers the aliases, drops a single alias's qualifiers and trims the ends. The result
// lies in `output`. One pass, and another over the result if it has just one alias. Throws
// std::bad_alloc.
std::string_view WriteTokens(Text text, OutputBuffer& output);

}  // namespace tarn::sqlnorm

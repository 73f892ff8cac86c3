#pragma once

#include <string_view>

#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// Spaces the tokens of a padded text, writes the keywords in capitals, joins dots, attaches commas,
// numbers the aliases, drops a single alias's qualifiers and trims the ends. The result is in
// `output`. One pass, another over the result if it has just one alias, and another over the rest
// of the text if it has more than sixteen. Throws std::bad_alloc.
std::string_view WriteTokens(Text text, OutputBuffer& output);

}  // namespace tarn::sqlnorm

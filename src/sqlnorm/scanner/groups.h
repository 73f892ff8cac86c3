#pragma once

#include <cstddef>

namespace tarn::sqlnorm {

// Rewrites what hangs on a pair of parentheses, in place: opens comparison groups, turns
// "NOT (a IN (...))" around, deletes parameter lists and cuts a VALUES clause after its first row.
// None of these ever makes the text longer.
//
// `text` holds `length` bytes and is padded; the result's length is returned and the text is padded
// again. One pass over the text for each of the four, at most. Never throws.
std::size_t RewriteGroups(char* text, std::size_t length) noexcept;

}  // namespace tarn::sqlnorm

#pragma once

#include "sqlnorm/scanner/survey.h"
#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// Rewrites what hangs on a pair of parentheses, in place: opens comparison groups, turns
// "NOT (a IN (...))" around, deletes parameter lists and cuts a VALUES clause behind its first row.
// None of these ever makes the text longer. The text is padded, before and after. One pass for each
// of the four, at most. Never throws.
//
// Requires: `survey` is the text's own, from before its literals were printed anew.
void RewriteGroups(Text& text, const Survey& survey) noexcept;

}  // namespace tarn::sqlnorm

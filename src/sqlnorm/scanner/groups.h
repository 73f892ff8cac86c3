#pragma once

#include "sqlnorm/scanner/survey.h"
#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// Multi-row VALUES truncation before anything else is rewritten, so that the rows removed cost no
// more than a check of their decimals. The text is padded, before and after. Throws
// boost::bad_lexical_cast, the text unchanged, if a decimal that would be removed is beyond the
// range of double, as its literal would.
//
// Requires: `row_end` is the row_end of the text's survey, and not null.
void CutAfterFirstRow(Text& text, const char* row_end);

// Applies the rewrites of parentheses, in place: opens comparison groups, turns "NOT (a IN (...))"
// into "a NOT IN (...)", deletes parameter lists and removes everything after a first VALUES row.
// None of these ever makes the text longer. The text is padded, before and after. At most one pass
// for each of the four. Never throws.
//
// Requires: `survey` is the text's own, from before its literals were printed anew.
void RewriteGroups(Text& text, const Survey& survey) noexcept;

}  // namespace tarn::sqlnorm

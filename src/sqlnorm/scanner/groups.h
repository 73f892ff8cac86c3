#pragma once

#include "sqlnorm/scanner/survey.h"
#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// Truncates multi-row VALUES before anything else is rewritten, so that the removed rows cost no
// more than a check of their decimals. The text is padded, before and after. If a removed decimal
// is beyond the range of double, throws boost::bad_lexical_cast, as printing it would, and leaves
// the text unchanged.
//
// Requires: `row_end` is the row_end of the text's survey, and not null.
void CutAfterFirstRow(Text& text, const char* row_end);

// Applies the rewrites of parentheses, in place: opens comparison groups, turns "NOT (a IN (...))"
// into "a NOT IN (...)", deletes parameter lists and removes everything after a first VALUES row.
// None of these ever makes the text longer. The text is padded, before and after. At most one pass
// for each of the four. Never throws.
//
// Requires: `survey` was made from this text, before its literals were printed anew.
void RewriteGroups(Text& text, const Survey& survey) noexcept;

}  // namespace tarn::sqlnorm

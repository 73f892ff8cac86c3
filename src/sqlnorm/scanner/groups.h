#pragma once

#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// Which rewrites of parentheses may have something to do.
struct GroupHints {
  bool comparisons = false;  // comparison-group unwrapping
  bool negations = false;    // negated IN-list rewrite
  bool parameters = false;   // parameter-list removal
  bool rows = false;         // multi-row VALUES truncation
};

// Looks at every parenthesis of a statement whose literals have not been printed anew yet.
//
// Where it is certain already that a VALUES clause will be cut behind its first row, it is cut
// here, so that the other rows cost no more than a look at their decimals. The text is padded,
// before and after. Throws boost::bad_lexical_cast if what is cut off holds a decimal beyond the
// range of double.
GroupHints SurveyGroups(Text& text);

// Rewrites what hangs on a pair of parentheses, in place: opens comparison groups, turns
// "NOT (a IN (...))" around, deletes parameter lists and cuts a VALUES clause behind its first row.
// None of these ever makes the text longer. The text is padded, before and after. One pass for each
// of the four, at most. Never throws.
//
// Requires: the text is the surveyed one, with its literals printed anew.
void RewriteGroups(Text& text, const GroupHints& hints) noexcept;

}  // namespace tarn::sqlnorm

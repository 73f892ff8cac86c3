#pragma once

#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// Which rewrites may have something to do: never too few.
struct Survey {
  const char* first_literal = nullptr;  // the first place that a literal may hang on
  bool comparisons = false;             // comparison-group unwrapping
  bool negations = false;               // negated IN-list rewrite
  bool parameters = false;              // parameter-list removal
  bool rows = false;                    // multi-row VALUES truncation
};

// Looks at a statement before anything of it is rewritten.
//
// Where it is certain already that a VALUES clause will be cut behind its first row, it is cut
// here, so that the other rows cost no more than a look at their decimals. The text is padded,
// before and after. One pass. Throws boost::bad_lexical_cast if what is cut off holds a decimal
// beyond the range of double.
Survey SurveyText(Text& text);

}  // namespace tarn::sqlnorm

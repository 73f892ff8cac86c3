#pragma once

#include <cstddef>

#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// Which rewrites may have something to do: never too few.
struct Survey {
  const char* first_literal = nullptr;  // the first place that a literal may hang on
  bool comparisons = false;             // comparison-group unwrapping, of groups that hold decimals
  std::size_t before_comparisons = 0;   // opening parentheses before the first of these
  bool negations = false;               // negated IN-list rewrite
  bool parameters = false;              // parameter-list removal
  bool rows = false;                    // multi-row VALUES truncation

  // Whether any rewrite of parentheses may.
  bool Groups() const noexcept { return comparisons || negations || parameters || rows; }
};

// Looks at a statement before anything of it is rewritten, and does right away what is certain then
// already: it opens the comparison groups that no literal can change, and cuts a VALUES clause
// behind its first row, so that the other rows cost no more than a look at their decimals. The text
// is padded, before and after. One pass. Throws boost::bad_lexical_cast if what is cut off holds a
// decimal beyond the range of double.
Survey SurveyText(Text& text);

}  // namespace tarn::sqlnorm

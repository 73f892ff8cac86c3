#pragma once

#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// The rewrites that may apply to a statement. The flag of each that does apply is always set.
struct Survey {
  const char* first_literal = nullptr;  // no literal begins before it; null if there is none
  bool comparisons = false;             // comparison-group unwrapping
  bool negations = false;               // negated IN-list rewrite
  bool parameters = false;              // parameter-list removal
  bool rows = false;                    // multi-row VALUES truncation

  // The end of the first VALUES row, if it is certain already that truncation removes everything
  // after it; or null. The flags then describe the text up to it only.
  //   insert into t values (1, now()), (2, now())
  //                                 ^ after the first closing parenthesis, a comma follows
  const char* row_end = nullptr;

  // Whether any rewrite of parentheses may apply.
  bool Groups() const noexcept { return comparisons || negations || parameters || rows; }
};

// Reads a padded statement once, before anything is rewritten, and changes nothing. Never throws.
Survey SurveyText(const Text& text) noexcept;

}  // namespace tarn::sqlnorm

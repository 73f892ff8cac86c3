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

  // The end of the first VALUES row, after its first closing parenthesis, if it is certain already
  // that truncation removes everything from there on; otherwise null. If it is not null, the flags
  // describe only the text before it.
  //   insert into t values (1, now(), 2), (3, now(), 4)
  //                                 ^ a comma follows the first closing parenthesis
  const char* row_end = nullptr;

  // Whether any rewrite of parentheses may apply.
  bool Groups() const noexcept { return comparisons || negations || parameters || rows; }
};

// Reads a padded statement once, before anything is rewritten, and changes nothing. Never throws.
Survey SurveyText(const Text& text) noexcept;

}  // namespace tarn::sqlnorm

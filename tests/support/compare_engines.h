#pragma once

#include <string>

namespace tarn::test {

enum class Outcome {
  kSame,
  kDifferent,
  kPatternsGaveUp,  // the regular-expression library reached its limits: nothing to compare with
};

struct Comparison {
  Outcome outcome;
  // For kDifferent, one line with a command that traces the statement, and both results.
  std::string line;
};

// Runs both engines on `sql` and compares their bytes, or the types of their exceptions.
Comparison CompareEngines(const std::string& sql);

// `text` as an argument of printf(1) that prints the same bytes, including NUL bytes.
std::string Quoted(const std::string& text);

}  // namespace tarn::test

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

// Sends `sql` down both engines and compares bytes, or the types of the exceptions.
Comparison CompareEngines(const std::string& sql);

// `text` as an argument of printf(1), which gives its bytes back, NUL bytes too.
std::string Quoted(const std::string& text);

}  // namespace tarn::test

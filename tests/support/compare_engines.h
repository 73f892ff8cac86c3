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

// Compares the engines on many statements.
class Tally {
 public:
  // Prints the first differences to standard error.
  void Compare(const std::string& sql);

  // Prints how much was compared, and returns whether there was something and no difference.
  bool AllSame() const;

 private:
  long compared_ = 0;
  long different_ = 0;
  long gave_up_ = 0;
};

}  // namespace tarn::test

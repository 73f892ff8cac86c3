// The pattern engine: the normalizer as a fixed sequence of 23 regular-expression rewrites. It is
// the definition of the canonical text; whatever else produces that text is measured against it.
#pragma once

#include <string>

namespace tarn::sqlnorm {

// Number of rewrite steps, and the number of the last one; the first is step 1.
inline constexpr int kStepCount = 23;

// Receives the working text after each step of a run.
class StepObserver {
 public:
  // `step` is 1 to kStepCount; `name` lives for ever; `text` only during the call.
  virtual void AfterStep(int step, const char* name, const std::string& text) = 0;

 protected:
  ~StepObserver() = default;
};

// The text after all 23 steps. `observer`, if any, is called after each step on the calling thread.
//
// Throws boost::bad_lexical_cast for a decimal literal beyond the range of double,
// std::runtime_error when Boost.Regex exceeds its limits on complexity or backtracking memory,
// std::bad_alloc, and what the observer throws. Literals are read and printed under the classic
// locale, bytes are classified under the global C++ locale of when the library was loaded.
// Thread-safe.
std::string NormalizeByPatterns(const std::string& sql, StepObserver* observer = nullptr);

// The same for the steps `first` to `last` alone, on a text that is taken for the output of the step
// before `first`. Requires: 1 <= first <= last <= kStepCount.
std::string RunSteps(std::string text, int first, int last, StepObserver* observer = nullptr);

// Whether every byte was, to the patterns when they were compiled, a word character, a space or a
// digit just as it is under the classic locale, with the same lower case. Constant once the library
// is loaded.
bool PatternsSawClassicClasses() noexcept;

}  // namespace tarn::sqlnorm

// The pattern engine: the normalizer as a fixed sequence of 23 regular-expression rewrites. It
// defines the canonical text; any other engine must produce the same text.
#pragma once

#include <string>

namespace tarn::sqlnorm {

// Number of rewrite steps, and the number of the last one; the first is step 1.
inline constexpr int kStepCount = 23;

// Receives the working text after each step of a run.
class StepObserver {
 public:
  // `step` is 1 to kStepCount. `name` is valid for ever, `text` only during the call.
  virtual void AfterStep(int step, const char* name, const std::string& text) = 0;

 protected:
  ~StepObserver() = default;
};

// The text after all 23 steps. `observer`, if any, is called after each step on the calling thread.
//
// Throws boost::bad_lexical_cast for a decimal literal beyond the range of double,
// std::runtime_error if Boost.Regex exceeds its limits on complexity or backtracking memory,
// std::bad_alloc, and the exceptions of the observer. Literals are read and printed under the
// classic locale. Bytes are classified under the C++ locale that was global when the library was
// loaded. Thread-safe.
std::string NormalizeByPatterns(const std::string& sql, StepObserver* observer = nullptr);

// Runs only the steps `first` to `last`, on a text that counts as the output of the step before
// `first`. Requires: 1 <= first <= last <= kStepCount.
std::string RunSteps(std::string text, int first, int last, StepObserver* observer = nullptr);

// Whether the patterns classify every byte as the classic locale does: the same word characters,
// spaces and digits, and the same lower case. Constant once the library is loaded.
bool PatternsSawClassicClasses() noexcept;

}  // namespace tarn::sqlnorm

#include "sqlnorm/scanner/survey.h"

#include <bit>
#include <cstdint>

#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/byte_class.h"
#include "sqlnorm/scanner/comparison_group.h"
#include "sqlnorm/scanner/literals.h"

namespace tarn::sqlnorm {
namespace {

// Decides, for each parenthesis from the first to the last, which rewrites may apply.
class ParenthesisSurvey {
 public:
  ParenthesisSurvey(const char* text, Survey& survey) noexcept : text_(text), survey_(survey) {}

  void Opening(const char* p) noexcept {
    const char* const before = SkipSpacesBack(text_, p);
    const bool comparison = MayBecomeComparisonGroup(p);
    const bool negation = MatchWordBack(text_, before, "not") != nullptr;
    const bool parameter = *SkipSpaces(p + 1) == '@';
    survey_.comparisons |= comparison;
    survey_.negations |= negation;
    survey_.parameters |= parameter;
    const bool plain = !comparison && !negation && !parameter;
    if (row_ != nullptr) {
      // If another rewrite may change the row before truncation, its end is no longer certain. Any
      // other parenthesis within the row changes nothing, for example a call's.
      if (plain) return;
      survey_.rows = true;
      row_ = nullptr;
    }
    if (const char* const keyword = MatchWordBack(text_, before, "values")) {
      // The removal of a parameter list before the keyword would join it to another word.
      const bool certain = plain && (keyword == text_ || keyword[-1] != ')');
      survey_.rows |= !certain;
      row_ = certain ? p : nullptr;
    }
  }

  // Whether truncation is certain to remove everything after the closing parenthesis at `p`.
  bool Closing(const char* p) noexcept {
    const bool ends_row = row_ != nullptr && p != row_ + 1;
    row_ = nullptr;
    return ends_row && *SkipSpaces(p + 1) == ',';
  }

 private:
  const char* const text_;
  Survey& survey_;
  const char* row_ = nullptr;  // the opening parenthesis of a row that only truncation may change
};

}  // namespace

Survey SurveyText(const Text& text) noexcept {
  Survey survey;
  ParenthesisSurvey parentheses(text.data, survey);
  const char* const end = text.data + text.length;
  for (const char* block = text.data; block < end; block += BlockClasses::kBytes) {
    if (survey.first_literal == nullptr) {
      const std::uint64_t marks = MarkedBits(block, MarkLiteralCandidates);
      if (marks != 0) survey.first_literal = block + std::countr_zero(marks);
    }
    std::uint64_t marks = MarkedBits(block, MarkParentheses);
    for (; marks != 0; marks &= marks - 1) {
      const char* const p = block + std::countr_zero(marks);
      if (*p == '(') {
        parentheses.Opening(p);
      } else if (parentheses.Closing(p)) {
        survey.row_end = p + 1;
        return survey;
      }
    }
  }
  return survey;
}

}  // namespace tarn::sqlnorm

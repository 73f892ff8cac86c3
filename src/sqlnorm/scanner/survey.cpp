#include "sqlnorm/scanner/survey.h"

#include <bit>
#include <cstddef>
#include <cstdint>

#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/byte_class.h"
#include "sqlnorm/scanner/comparison_group.h"
#include "sqlnorm/scanner/literals.h"

namespace tarn::sqlnorm {
namespace {

// What parentheses tell, from the first to the last.
class ParenthesisSurvey {
 public:
  ParenthesisSurvey(char* text, Survey& survey) noexcept : text_(text), survey_(survey) {}

  void Opening(char* p) noexcept {
    // Another parenthesis within a row may be rewritten.
    survey_.rows |= row_ != nullptr;
    row_ = nullptr;
    const ComparisonGroup group = MatchComparisonGroup(p);
    if (group.close != nullptr && !group.has_decimal && !survey_.comparisons) {
      OpenComparisonGroup(p, text_ + (group.close - text_));
      return;
    }
    survey_.comparisons |= group.may_become_one;
    // Whether a group opens is told by the text as it came: those before the first that has to wait
    // are settled, and those behind it wait as well.
    survey_.before_comparisons += survey_.comparisons ? 0 : 1;
    const bool parameter = *SkipSpaces(p + 1) == '@';
    survey_.parameters |= parameter;
    const char* const before = SkipSpacesBack(text_, p);
    if (MatchWordBack(text_, before, "not") != nullptr) survey_.negations = true;
    if (const char* const keyword = MatchWordBack(text_, before, "values")) {
      // A parameter list before the keyword would go, and join it to another word.
      const bool plain =
          !group.may_become_one && !parameter && (keyword == text_ || keyword[-1] != ')');
      survey_.rows |= !plain;
      row_ = plain ? p : nullptr;
    }
  }

  // Whether all that follows `p` will be cut off.
  bool Closing(const char* p) noexcept {
    const bool ends_row = row_ != nullptr && p != row_ + 1;
    row_ = nullptr;
    return ends_row && *SkipSpaces(p + 1) == ',';
  }

 private:
  char* const text_;
  Survey& survey_;
  const char* row_ = nullptr;  // where a row has begun that nothing but its end may change
};

void CutAt(const char* p, Text& text) {
  const auto length = static_cast<std::size_t>(p - text.data);
  CheckDecimalRanges(p, text.length - length);
  text.length = length;
  Pad(text.data + length);
}

}  // namespace

Survey SurveyText(Text& text) {
  Survey survey;
  ParenthesisSurvey parentheses(text.data, survey);
  char* const end = text.data + text.length;
  for (char* block = text.data; block < end; block += BlockClasses::kBytes) {
    if (survey.first_literal == nullptr) {
      const std::uint64_t marks = MarkedBits(block, MarkLiteralCandidates);
      if (marks != 0) survey.first_literal = block + std::countr_zero(marks);
    }
    std::uint64_t marks = MarkedBits(block, MarkParentheses);
    for (; marks != 0; marks &= marks - 1) {
      char* const p = block + std::countr_zero(marks);
      if (*p == '(') {
        parentheses.Opening(p);
      } else if (*p == ')' && parentheses.Closing(p)) {  // not one of an opened group
        CutAt(p + 1, text);
        return survey;
      }
    }
  }
  return survey;
}

}  // namespace tarn::sqlnorm

#include "sqlnorm/scanner/survey.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/byte_class.h"
#include "sqlnorm/scanner/literals.h"

namespace tarn::sqlnorm {
namespace {

// Whether what follows an opening parenthesis at `p` may be a comparison group, before or after its
// literals are printed anew.
bool MayBeComparisonGroup(const char* p) noexcept {
  p = SkipSpaces(p + 1);
  while (IsWord(*p) || *p == '.' || *p == '+' || *p == '-') ++p;
  p = SkipSpaces(p);
  return *p == '=' || ClassOf(*p) == ByteClass::kAngle;
}

// What parentheses tell, from the first to the last.
class ParenthesisSurvey {
 public:
  ParenthesisSurvey(const char* text, Survey& survey) noexcept : text_(text), survey_(survey) {}

  void Opening(const char* p) noexcept {
    const bool comparison = MayBeComparisonGroup(p);
    const bool parameter = *SkipSpaces(p + 1) == '@';
    survey_.comparisons |= comparison;
    survey_.parameters |= parameter;
    // Another parenthesis within a row may be rewritten.
    survey_.rows |= row_ != nullptr;
    row_ = nullptr;
    const char* const before = SkipSpacesBack(text_, p);
    if (MatchWordBack(text_, before, "not") != nullptr) survey_.negations = true;
    if (const char* const keyword = MatchWordBack(text_, before, "values")) {
      // A parameter list before the keyword would go, and join it to another word.
      const bool plain = !comparison && !parameter && (keyword == text_ || keyword[-1] != ')');
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
  const char* const text_;
  Survey& survey_;
  const char* row_ = nullptr;  // where a row has begun that nothing but its end may change
};

void CutAt(const char* p, Text& text) {
  const auto length = static_cast<std::size_t>(p - text.data);
  CheckDecimalRanges(p, text.length - length);
  text.length = length;
  std::memset(text.data + length, 0, kPadding);
}

}  // namespace

Survey SurveyText(Text& text) {
  Survey survey;
  ParenthesisSurvey parentheses(text.data, survey);
  const char* const end = text.data + text.length;
  for (const char* block = text.data; block < end; block += BlockClasses::kBytes) {
    if (survey.first_literal == nullptr) {
      const std::uint64_t marks = BitsWithin(MarkedBits(block, MarkLiteralCandidates), end - block);
      if (marks != 0) survey.first_literal = block + std::countr_zero(marks);
    }
    std::uint64_t marks = BitsWithin(MarkedBits(block, MarkParentheses), end - block);
    for (; marks != 0; marks &= marks - 1) {
      const char* const p = block + std::countr_zero(marks);
      if (*p == '(') {
        parentheses.Opening(p);
      } else if (parentheses.Closing(p)) {
        CutAt(p + 1, text);
        return survey;
      }
    }
  }
  return survey;
}

}  // namespace tarn::sqlnorm

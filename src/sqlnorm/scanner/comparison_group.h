// Comparison-group unwrapping: a pair of parentheses around comparisons that AND joins.
//
// Each Match function takes the position where its part may begin. It returns the position after
// it, or null if it is not there. Requires, throughout: the text is padded.
#pragma once

#include "sqlnorm/scanner/byte_class.h"

namespace tarn::sqlnorm {

// A word, or two joined by a dot.
inline const char* MatchOperand(const char* p) noexcept {
  if (!IsWord(*p)) return nullptr;
  p = SkipWord(p);
  return *p == '.' && IsWord(p[1]) ? SkipWord(p + 1) : p;
}

// = >= <= > < !=
inline const char* MatchComparisonOperator(const char* p) noexcept {
  switch (*p) {
    case '=':
      return p + 1;
    case '>':
    case '<':
      return p[1] == '=' ? p + 2 : p + 1;
    case '!':
      return p[1] == '=' ? p + 2 : nullptr;
    default:
      return nullptr;
  }
}

// An operand, an operator and an operand.
inline const char* MatchComparison(const char* p) noexcept {
  p = MatchOperand(p);
  if (p == nullptr) return nullptr;
  p = MatchComparisonOperator(SkipSpaces(p));
  return p == nullptr ? nullptr : MatchOperand(SkipSpaces(p));
}

// The closing parenthesis of the group whose opening one is at `open`; or null if there is no
// group. The closing one must follow the last operand directly: "( a = b)" is a group, "(a = b )"
// is not.
inline const char* MatchComparisonGroup(const char* open) noexcept {
  const char* p = MatchComparison(SkipSpaces(open + 1));
  while (p != nullptr && *p != ')') {
    p = SkipSpaces(p);  // at least one: "and" would belong to the operand otherwise
    if (!HasLettersAt(p, "and") || !IsSpace(p[3])) return nullptr;
    p = MatchComparison(SkipSpaces(p + 3));
  }
  return p;
}

// Whether there may be a group at `open` once literals are printed anew. That is so if a comparison
// follows it, after which the group may end or continue, or if an operand is followed by a
// character with which a literal continues:
//   (1.5e+3 = a)  ->  (1500 = a)
//   (a = 1, 2)    no group
inline bool MayBecomeComparisonGroup(const char* open) noexcept {
  const auto literal_goes_on = [](char c) { return c == '+' || c == '-' || c == '.'; };
  const char* p = MatchOperand(SkipSpaces(open + 1));
  if (p == nullptr) return false;
  if (literal_goes_on(*p)) return true;
  p = MatchComparisonOperator(SkipSpaces(p));
  if (p == nullptr) return false;
  p = MatchOperand(SkipSpaces(p));
  return p != nullptr && (*p == ')' || IsSpace(*p) || literal_goes_on(*p));
}

}  // namespace tarn::sqlnorm

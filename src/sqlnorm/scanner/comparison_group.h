// Comparison-group unwrapping: a pair of parentheses around comparisons that AND joins.
//
// The Match functions take the place where something may begin and return the place after it, or
// null if it is not there. Requires, throughout: the text is padded.
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

struct ComparisonGroup {
  const char* close = nullptr;  // its closing parenthesis; null if there is no group
  bool has_decimal = false;     // whether an operand may be a decimal literal
  bool may_become_one = false;  // whether there may be a group once literals are printed anew
};

// The group whose opening parenthesis `p` may be. Its closing one must follow the last operand
// directly.
inline ComparisonGroup MatchComparisonGroup(const char* p) noexcept {
  ComparisonGroup group;
  const auto match_operand = [&group](const char* begin) {
    group.has_decimal |= *SkipDigits(begin) == '.';
    return MatchOperand(begin);
  };
  p = match_operand(SkipSpaces(p + 1));
  if (p == nullptr) return group;
  // A literal may go on where an operand ends: with the sign of its exponent.
  group.may_become_one = *p == '+' || *p == '-' || *p == '.';
  for (;;) {
    p = MatchComparisonOperator(SkipSpaces(p));
    if (p == nullptr) return group;
    group.may_become_one = true;
    p = match_operand(SkipSpaces(p));
    if (p == nullptr) return group;
    if (*p == ')') break;
    p = SkipSpaces(p);  // there are some, if a word follows
    if (!StandsAt(p, "and") || !IsSpace(p[3])) return group;
    p = match_operand(SkipSpaces(p + 3));
    if (p == nullptr) return group;
  }
  group.close = p;
  return group;
}

// Blanks take the place of both parentheses.
inline void OpenComparisonGroup(char* open, char* close) noexcept { *open = *close = ' '; }

}  // namespace tarn::sqlnorm

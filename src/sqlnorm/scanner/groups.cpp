#include "sqlnorm/scanner/groups.h"

#include <cstddef>
#include <cstring>
#include <string_view>

#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/byte_class.h"
#include "sqlnorm/scanner/comparison_group.h"
#include "sqlnorm/scanner/literals.h"

namespace tarn::sqlnorm {
namespace {

ByteBlock MarkOpening(const char* q) noexcept { return LoadBlock(q) == '('; }

// Calls visit(p) for every opening parenthesis, as VisitMarks does.
template <typename Visit>
void VisitOpening(const char* text, const char* end, Visit visit) {
  VisitMarks(text, end, MarkOpening, visit);
}

// Each Match function takes the position where its part may begin. It returns the position after it
// or null, or whether the part is there.

// The parts of "operand IN (list))" that the rewrite keeps.
struct NegatedInList {
  const char* operand;
  const char* operand_end;
  const char* list;  // after its parenthesis
  const char* list_end;
  const char* end;  // after the outer closing parenthesis
};

// `p` is where the operand may begin.
bool MatchNegatedInList(const char* p, const char* end, NegatedInList& found) noexcept {
  found.operand = SkipSpaces(p);
  found.operand_end = MatchOperand(found.operand);
  if (found.operand_end == nullptr) return false;
  p = SkipSpaces(found.operand_end);  // at least one: "in" would belong to the operand otherwise
  if (!HasLettersAt(p, "in")) return false;
  p = SkipSpaces(p + 2);
  if (*p != '(') return false;
  found.list = ++p;
  while (p != end && *p != '(' && *p != ')') ++p;
  if (p == end || *p == '(' || p == found.list) return false;
  found.list_end = p;
  p = SkipSpaces(p + 1);
  found.end = p + 1;
  return *p == ')';
}

// A list of "@p" markers, from its opening parenthesis to its closing one: (@p0, @p1).
const char* MatchParameterList(const char* p) noexcept {
  do {
    p = SkipSpaces(p + 1);
    if (*p != '@') return nullptr;
    p = SkipSpaces(p + 1);
    if (*p != 'p' || !IsDigit(p[1])) return nullptr;
    p = SkipSpaces(SkipDigits(p + 1));
  } while (*p == ',');
  return *p == ')' ? p + 1 : nullptr;
}

// A text that shrinks while it is read: parts that are kept move down over parts that were dropped.
class Compaction {
 public:
  explicit Compaction(char* text) noexcept : out_(text), pending_(text) {}

  void KeepTo(const char* p) noexcept {
    const auto count = static_cast<std::size_t>(p - pending_);
    std::memmove(out_, pending_, count);
    out_ += count;
    pending_ = p;
  }
  void DropTo(const char* p) noexcept { pending_ = p; }

  // Puts `inserted` before the part up to `p`, which it keeps. Requires: at least as many bytes
  // have been dropped, or are dropped next.
  void InsertAndKeepTo(std::string_view inserted, const char* p) noexcept {
    char* const begin = out_;
    out_ += inserted.size();
    KeepTo(p);
    std::memcpy(begin, inserted.data(), inserted.size());
  }

  // Keeps the rest of a text that ended at `end`, pads it, and returns its new end.
  char* Finish(char* end) noexcept {
    KeepTo(end);
    Pad(out_);
    return out_;
  }

 private:
  char* out_;
  const char* pending_;
};

// Comparison-group unwrapping: blanks replace both parentheses of a group.
void OpenComparisonGroups(char* text, const char* end) noexcept {
  VisitOpening(text, end, [text](const char* p) {
    const char* const close = MatchComparisonGroup(p);
    if (close == nullptr) return p + 1;
    text[p - text] = text[close - text] = ' ';
    return close + 1;
  });
}

// The other rewrites take the end of the text and return its new end.

// Negated IN-list rewrite.
char* RewriteNegatedInLists(char* text, char* end) noexcept {
  Compaction compaction(text);
  VisitOpening(text, end, [&](const char* p) {
    // The search back stops at the parenthesis that ended the last rewrite, if not before. The
    // bytes before that parenthesis have been moved.
    const char* const keyword = MatchWordBack(text, SkipSpacesBack(text, p), "not");
    NegatedInList found{};
    if (keyword == nullptr || !MatchNegatedInList(p + 1, end, found)) return p + 1;
    compaction.KeepTo(keyword);
    compaction.DropTo(found.operand);
    compaction.KeepTo(found.operand_end);
    compaction.DropTo(found.list);
    compaction.InsertAndKeepTo(" NOT IN (", found.list_end + 1);
    compaction.DropTo(found.end);
    return found.end;
  });
  return compaction.Finish(end);
}

// Parameter-list removal.
char* DeleteParameterLists(char* text, char* end) noexcept {
  Compaction compaction(text);
  VisitOpening(text, end, [&](const char* p) {
    const char* const list_end = MatchParameterList(p);
    if (list_end == nullptr) return p + 1;
    compaction.KeepTo(p);
    compaction.DropTo(list_end);
    return list_end;
  });
  return compaction.Finish(end);
}

// Multi-row VALUES truncation: a row ends at its first closing parenthesis, even if others open
// before.
char* TruncateAfterFirstRow(char* text, char* end) noexcept {
  bool row_begun = false;
  char* row_end = end;
  VisitMarks(text, end, MarkParentheses, [&](const char* p) -> const char* {
    if (*p == '(') {
      row_begun = row_begun || (p[1] != ')' &&
                                MatchWordBack(text, SkipSpacesBack(text, p), "values") != nullptr);
    } else if (row_begun && *SkipSpaces(p + 1) == ',') {
      row_end = text + (p + 1 - text);
      return end;
    } else {
      row_begun = false;
    }
    return p + 1;
  });
  Compaction compaction(row_end);
  compaction.DropTo(end);
  return compaction.Finish(end);
}

}  // namespace

void CutAfterFirstRow(Text& text, const char* row_end) {
  const auto length = static_cast<std::size_t>(row_end - text.data);
  CheckDecimalRanges(row_end, text.length - length);
  text.length = length;
  Pad(text.data + length);
}

void RewriteGroups(Text& text, const Survey& survey) noexcept {
  char* const begin = text.data;
  char* end = begin + text.length;
  if (survey.comparisons) OpenComparisonGroups(begin, end);
  if (survey.negations) end = RewriteNegatedInLists(begin, end);
  bool rows = survey.rows;
  if (survey.parameters) {
    char* const before = end;
    end = DeleteParameterLists(begin, end);
    // The parts before and after a deleted list are adjacent now, and may be a row:
    //   values (@p0) (1), (2)
    rows = rows || end != before;
  }
  if (rows) end = TruncateAfterFirstRow(begin, end);
  text.length = static_cast<std::size_t>(end - begin);
}

}  // namespace tarn::sqlnorm

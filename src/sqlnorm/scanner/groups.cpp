#include "sqlnorm/scanner/groups.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "sqlnorm/scanner/byte_class.h"

namespace tarn::sqlnorm {
namespace {

// The Match functions take the place where something may begin and return the place after it, or
// null if it is not there.

const char* FindParenthesis(const char* from, const char* end) noexcept {
  return static_cast<const char*>(std::memchr(from, '(', static_cast<std::size_t>(end - from)));
}

// A word, or two joined by a dot.
const char* MatchOperand(const char* p) noexcept {
  if (!IsWord(*p)) return nullptr;
  p = SkipWord(p);
  return *p == '.' && IsWord(p[1]) ? SkipWord(p + 1) : p;
}

// = >= <= > < !=
const char* MatchComparisonOperator(const char* p) noexcept {
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

const char* MatchComparison(const char* p) noexcept {
  p = MatchOperand(p);
  if (p == nullptr) return nullptr;
  p = MatchComparisonOperator(SkipSpaces(p));
  return p == nullptr ? nullptr : MatchOperand(SkipSpaces(p));
}

// What follows the opening parenthesis of a comparison group, up to its closing one, which must
// follow the last operand directly. Returns the closing parenthesis.
const char* MatchComparisonGroup(const char* p) noexcept {
  p = SkipSpaces(p);
  for (;;) {
    p = MatchComparison(p);
    if (p == nullptr || *p == ')') return p;
    if (!IsSpace(*p)) return nullptr;
    p = SkipSpaces(p);
    if (!StandsAt(p, "and") || !IsSpace(p[3])) return nullptr;
    p = SkipSpaces(p + 3);
  }
}

// The word that ends, spaces aside, before `p`: whether it is `lower` in either case, as a whole
// word. `begin` bounds the look back. Returns where the word begins, or null.
template <std::size_t N>
const char* MatchWordBefore(const char* begin, const char* p, const char (&lower)[N]) noexcept {
  constexpr std::ptrdiff_t kLength = N - 1;
  while (p != begin && IsSpace(p[-1])) --p;
  if (p - begin < kLength) return nullptr;
  p -= kLength;
  if (!StandsAt(p, lower) || (p != begin && IsWord(p[-1]))) return nullptr;
  return p;
}

// What of "operand IN (list))" the rewrite keeps.
struct NegatedInList {
  const char* operand;
  const char* operand_end;
  const char* list;  // after its parenthesis
  const char* list_end;
  const char* end;  // after the outer closing parenthesis
};

// `p` is where the operand may stand.
bool MatchNegatedInList(const char* p, const char* end, NegatedInList& found) noexcept {
  found.operand = SkipSpaces(p);
  found.operand_end = MatchOperand(found.operand);
  if (found.operand_end == nullptr || !IsSpace(*found.operand_end)) return false;
  p = SkipSpaces(found.operand_end);
  if (!StandsAt(p, "in")) return false;
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

// A list of "@p" markers from its opening parenthesis to the place after its closing one.
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

// A text that shrinks while it is read: what is kept moves down over what was dropped.
class Compaction {
 public:
  explicit Compaction(char* text) noexcept : out_(text), pending_(text) {}

  // Where the part that has been neither kept nor dropped begins.
  const char* Pending() const noexcept { return pending_; }

  void KeepTo(const char* p) noexcept {
    const auto count = static_cast<std::size_t>(p - pending_);
    std::memmove(out_, pending_, count);
    out_ += count;
    pending_ = p;
  }
  void DropTo(const char* p) noexcept { pending_ = p; }

  // Keeps up to `p` and puts `inserted` before that part. At least as much must have been dropped,
  // or be dropped next.
  void InsertAndKeepTo(std::string_view inserted, const char* p) noexcept {
    char* const begin = out_;
    out_ += inserted.size();
    KeepTo(p);
    std::memcpy(begin, inserted.data(), inserted.size());
  }

  // Keeps the rest of a text that ended at `end`, pads it, and returns its new end.
  char* Finish(char* end) noexcept {
    KeepTo(end);
    std::memset(out_, 0, std::min<std::size_t>(static_cast<std::size_t>(end - out_), kPadding));
    return out_;
  }

 private:
  char* out_;
  const char* pending_;
};

// Each rewrite takes the end of the text and returns the new one.

char* RewriteNegatedInLists(char* text, char* end) noexcept {
  Compaction compaction(text);
  for (const char* p = FindParenthesis(text, end); p != nullptr; p = FindParenthesis(p, end)) {
    const char* const keyword = MatchWordBefore(compaction.Pending(), p, "not");
    ++p;
    NegatedInList found{};
    if (keyword == nullptr || !MatchNegatedInList(p, end, found)) continue;
    compaction.KeepTo(keyword);
    compaction.DropTo(found.operand);
    compaction.KeepTo(found.operand_end);
    compaction.DropTo(found.list);
    compaction.InsertAndKeepTo(" NOT IN (", found.list_end + 1);
    compaction.DropTo(found.end);
    p = found.end;
  }
  return compaction.Finish(end);
}

char* DeleteParameterLists(char* text, char* end) noexcept {
  Compaction compaction(text);
  for (const char* p = FindParenthesis(text, end); p != nullptr; p = FindParenthesis(p, end)) {
    const char* const list_end = MatchParameterList(p);
    if (list_end == nullptr) {
      ++p;
      continue;
    }
    compaction.KeepTo(p);
    compaction.DropTo(list_end);
    p = list_end;
  }
  return compaction.Finish(end);
}

char* CutAfterFirstRow(char* text, char* end) noexcept {
  // The first ")" at or after a place serves every "VALUES (" before it, so it is looked for and
  // looked at once.
  const char* close = text;
  bool comma_follows = false;
  for (const char* p = FindParenthesis(text, end); p != nullptr; p = FindParenthesis(p, end)) {
    const char* const keyword = MatchWordBefore(text, p, "values");
    ++p;
    if (keyword == nullptr || *p == ')') continue;
    if (close < p) {
      close = static_cast<const char*>(std::memchr(p, ')', static_cast<std::size_t>(end - p)));
      if (close == nullptr) break;
      comma_follows = *SkipSpaces(close + 1) == ',';
    }
    if (comma_follows) {
      Compaction compaction(text + (close + 1 - text));
      compaction.DropTo(end);
      return compaction.Finish(end);
    }
  }
  return end;
}

}  // namespace

std::size_t RewriteGroups(char* text, std::size_t length) noexcept {
  char* end = text + length;
  // One look at every opening parenthesis opens the comparison groups, which keeps the length, and
  // tells which of the other rewrites may have something to do.
  bool negations = false;
  bool parameters = false;
  bool values = false;
  for (const char* p = FindParenthesis(text, end); p != nullptr; p = FindParenthesis(p, end)) {
    const char* const close = MatchComparisonGroup(p + 1);
    if (close != nullptr) {
      text[p - text] = ' ';
      text[close - text] = ' ';
      p = close + 1;
      continue;
    }
    negations = negations || MatchWordBefore(text, p, "not") != nullptr;
    values = values || MatchWordBefore(text, p, "values") != nullptr;
    ++p;
    parameters = parameters || *SkipSpaces(p) == '@';
  }
  if (negations) end = RewriteNegatedInLists(text, end);
  if (parameters) {
    char* const before = end;
    end = DeleteParameterLists(text, end);
    // What a deleted list stood between has become adjacent.
    values = values || end != before;
  }
  if (values) end = CutAfterFirstRow(text, end);
  return static_cast<std::size_t>(end - text);
}

}  // namespace tarn::sqlnorm

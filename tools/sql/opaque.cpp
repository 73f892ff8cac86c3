#include "sql/opaque.h"

#include <cassert>
#include <cstddef>
#include <string_view>

#include "sql/text.h"

namespace tarn::host {
namespace {

// Whether the byte before text[at] is one of a word.
bool FollowsWord(std::string_view text, std::size_t at) noexcept {
  return at > 0 && IsWord(text[at - 1]);
}

}  // namespace

std::size_t OpaqueReader::Open(std::string_view text, std::size_t at, bool last) {
  assert(at < text.size() && kind_ == Opaque::kNone);
  const std::string_view rest = text.substr(at);
  const auto may_become = [rest, last](std::string_view mark) {
    return !last && rest.size() < mark.size() && mark.starts_with(rest);
  };
  switch (rest[0]) {
    case '\'': {
      const bool escapes =
          rules_->backslash_escapes || (rules_->escape_prefix && at > 0 &&
                                        Lower(text[at - 1]) == 'e' && !FollowsWord(text, at - 1));
      return Begin(Opaque::kText, "'", 1, escapes ? '\\' : '\'');
    }
    case '"': {
      const Opaque kind = rules_->double_quoted_texts ? Opaque::kText : Opaque::kName;
      return Begin(kind, "\"", 1, rules_->backslash_escapes ? '\\' : '"');
    }
    case '`':
      return rules_->backquoted_names ? Begin(Opaque::kName, "`", 1, '`') : 0;
    case '$':
      return rules_->dollar_quotes ? BeginDollarQuote(text, at, last) : 0;
    case '#':
      return rules_->hash_comments ? Begin(Opaque::kLineComment, "\n", 1, '\n') : 0;
    case '-': {
      if (may_become(rules_->spaced_dashes ? "-- " : "--")) return kUndecided;
      // "5--1" is an expression to MySQL.
      const bool spaced = rest.size() <= 2 || (rest[2] >= '\0' && rest[2] <= ' ');
      const bool comment = rest.starts_with("--") && (spaced || !rules_->spaced_dashes);
      return comment ? Begin(Opaque::kLineComment, "\n", 2, '\n') : 0;
    }
    case '/':
      if (may_become("/*M!")) return kUndecided;
      if (rules_->executable_comments && (rest.starts_with("/*!") || rest.starts_with("/*M!"))) {
        in_executable_ = true;
        return rest.find('!') + 1;
      }
      if (!rest.starts_with("/*")) return 0;
      return Begin(Opaque::kBlockComment, "*/", 2, rules_->nested_comments ? '/' : '*');
    case '*':
      if (!in_executable_) return 0;
      if (may_become("*/")) return kUndecided;
      if (!rest.starts_with("*/")) return 0;
      in_executable_ = false;
      return 2;
    default:
      return 0;
  }
}

std::size_t OpaqueReader::Pass(std::string_view text, std::size_t at, bool last) {
  assert(at <= text.size() && kind_ != Opaque::kNone);
  const char first = end_[0];
  const bool quote = first == '\'' || first == '"' || first == '`';
  const std::size_t deciding = quote ? 2 : end_.size();
  while (at < text.size()) {
    if (text[at] != first && text[at] != other_) {
      ++at;
      continue;
    }
    const std::string_view rest = text.substr(at);
    if (rest.size() < deciding && !last) return at;
    if (quote && rest.size() > 1 && (rest[0] != first || rest[1] == first)) {
      // An escaped byte, or a doubled quote: 'it\'s'  'it''s'
      at += 2;
    } else if (quote ? rest[0] == first : rest.starts_with(end_)) {
      at += end_.size();
      if (--depth_ == 0) {
        kind_ = Opaque::kNone;
        return at;
      }
    } else if (rest.starts_with("/*")) {
      ++depth_;
      at += 2;
    } else {
      ++at;
    }
  }
  return at;
}

// Returns `size`.
std::size_t OpaqueReader::Begin(Opaque kind, std::string_view end, std::size_t size, char other) {
  kind_ = kind;
  end_ = end;
  other_ = other;
  depth_ = 1;
  return size;
}

// $$text$$   $tag$text$tag$
std::size_t OpaqueReader::BeginDollarQuote(std::string_view text, std::size_t at, bool last) {
  // A tag follows the rules for names, and PostgreSQL's have at most 63 bytes.
  constexpr std::size_t kLongestTag = 64;
  if (FollowsWord(text, at)) return 0;
  const std::string_view rest = text.substr(at, kLongestTag);
  std::size_t end = 1;
  while (end < rest.size() && rest[end] != '$' && IsWord(rest[end])) ++end;
  if (end == rest.size() && end < kLongestTag && !last) return kUndecided;
  if (end == rest.size() || rest[end] != '$' || IsDigit(rest[1])) return 0;
  return Begin(Opaque::kText, rest.substr(0, end + 1), end + 1, '$');
}

}  // namespace tarn::host

#include "sql/opaque.h"

#include <algorithm>
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
  switch (text[at]) {
    case '\'':
    case '"':
    case '`':
      return OpenQuote(text, at);
    case '-':
    case '/':
    case '#':
      return OpenComment(text.substr(at), last);
    case '*':
      if (!in_executable_) return 0;
      if (at + 1 == text.size() && !last) return kUndecided;
      if (text.substr(at, 2) != "*/") return 0;
      in_executable_ = false;
      return 2;
    case '$':
      return rules_->dollar_quotes ? OpenDollarQuote(text, at, last) : 0;
    default:
      return 0;
  }
}

std::size_t OpaqueReader::Pass(std::string_view text, std::size_t at, bool last) {
  assert(at <= text.size() && kind_ != Opaque::kNone);
  std::size_t end = 0;
  switch (kind_) {
    case Opaque::kLineComment:
      end = PassUpTo("\n", text, at);
      break;
    case Opaque::kBlockComment:
      end = PassBlockComment(text, at);
      break;
    default:
      end = quote_ == '\0' ? PassUpTo(dollar_tag_, text, at) : PassQuote(text, at, last);
  }
  return last && kind_ != Opaque::kNone ? text.size() : end;
}

// 'text'  "name or text"  `name`
std::size_t OpaqueReader::OpenQuote(std::string_view text, std::size_t at) {
  quote_ = text[at];
  if (quote_ == '`' && !rules_->backquoted_names) return 0;
  kind_ = quote_ == '\'' || (quote_ == '"' && rules_->double_quoted_texts) ? Opaque::kText
                                                                           : Opaque::kName;
  escapes_ = kind_ == Opaque::kText && rules_->backslash_escapes;
  if (rules_->escape_prefix && quote_ == '\'' && at > 0) {
    escapes_ = Lower(text[at - 1]) == 'e' && !FollowsWord(text, at - 1);
  }
  return 1;
}

// -- comment   # comment   /* comment */   /*! code */
std::size_t OpaqueReader::OpenComment(std::string_view rest, bool last) {
  constexpr std::string_view kLongest = "/*M!";
  const bool undecided = rest == "-" || (rest == "--" && rules_->spaced_dashes) ||
                         (rest.size() < kLongest.size() && kLongest.starts_with(rest));
  if (undecided && !last) return kUndecided;
  // "5--1" is an expression to MySQL.
  const bool spaced = rest.size() <= 2 || (rest[2] >= '\0' && rest[2] <= ' ');
  if (rest[0] == '#' ? rules_->hash_comments
                     : rest.starts_with("--") && (spaced || !rules_->spaced_dashes)) {
    kind_ = Opaque::kLineComment;
    return 1;
  }
  if (!rest.starts_with("/*")) return 0;
  if (rules_->executable_comments && (rest.starts_with("/*!") || rest.starts_with(kLongest))) {
    in_executable_ = true;
    return rest.find('!') + 1;
  }
  kind_ = Opaque::kBlockComment;
  depth_ = 1;
  return 2;
}

// $$text$$   $tag$text$tag$
std::size_t OpaqueReader::OpenDollarQuote(std::string_view text, std::size_t at, bool last) {
  // No name in PostgreSQL is as long.
  constexpr std::size_t kLongestTag = 64;
  if (FollowsWord(text, at)) return 0;
  const std::string_view rest = text.substr(at, kLongestTag);
  const auto* const end =
      std::find_if(rest.begin() + 1, rest.end(), [](char c) { return c == '$' || !IsWord(c); });
  if (end == rest.end() && rest.size() < kLongestTag && !last) return kUndecided;
  if (end == rest.end() || *end != '$' || IsDigit(rest[1])) return 0;
  kind_ = Opaque::kText;
  quote_ = '\0';
  dollar_tag_.assign(rest.begin(), end + 1);
  return dollar_tag_.size();
}

// A doubled quote is one quote within the text: 'it''s'
std::size_t OpaqueReader::PassQuote(std::string_view text, std::size_t at, bool last) {
  while (at < text.size()) {
    const char c = text[at];
    const bool takes_next = c == quote_ || (c == '\\' && escapes_);
    if (!takes_next) {
      ++at;
      continue;
    }
    if (at + 1 == text.size() && !(last && c == quote_)) return at;
    if (c == quote_ && (at + 1 == text.size() || text[at + 1] != quote_)) {
      kind_ = Opaque::kNone;
      return at + 1;
    }
    at += 2;
  }
  return at;
}

std::size_t OpaqueReader::PassBlockComment(std::string_view text, std::size_t at) {
  const std::string_view stops = rules_->nested_comments ? "*/" : "*";
  for (;;) {
    at = std::min(text.find_first_of(stops, at), text.size());
    if (at + 1 >= text.size()) return at;
    const std::string_view two = text.substr(at, 2);
    if (two == "*/") {
      if (--depth_ == 0) {
        kind_ = Opaque::kNone;
        return at + 2;
      }
      at += 2;
    } else if (two == "/*" && rules_->nested_comments) {
      ++depth_;
      at += 2;
    } else {
      ++at;
    }
  }
}

std::size_t OpaqueReader::PassUpTo(std::string_view end, std::string_view text, std::size_t at) {
  const std::size_t found = text.find(end, at);
  if (found != std::string_view::npos) {
    kind_ = Opaque::kNone;
    return found + end.size();
  }
  // The text may end with the first bytes of `end`.
  return std::max(at, text.size() - std::min(end.size() - 1, text.size()));
}

}  // namespace tarn::host

#include "sql/lexer.h"

#include <array>
#include <cstddef>
#include <string_view>

#include "sql/text.h"

namespace tarn::host {
namespace {

bool IsHexDigit(char c) noexcept {
  const char lower = Lower(c);
  return IsDigit(c) || (lower >= 'a' && lower <= 'f');
}

bool IsBinaryDigit(char c) noexcept { return c == '0' || c == '1'; }

// The signs of several bytes. If two begin alike, the longer one is first.
constexpr std::string_view kLongSigns[] = {
    "<=>", "->>", "#>>", "!~*", "<=", ">=", "<>", "!=", "||", "&&",
    "<<",  ">>",  "::",  ":=",  "->", "=>", "..", "#>", "!~", "~*"};

// The bytes that are at the index `at` of one of the long signs.
constexpr std::array<bool, 256> BytesOfLongSigns(std::size_t at) {
  std::array<bool, 256> bytes{};
  for (const std::string_view sign : kLongSigns) bytes[static_cast<unsigned char>(sign[at])] = true;
  return bytes;
}
constexpr std::array<bool, 256> kFirstOfLongSigns = BytesOfLongSigns(0);
constexpr std::array<bool, 256> kSecondOfLongSigns = BytesOfLongSigns(1);

}  // namespace

Token Lexer::Next() {
  PassBlanks();
  begin_ = at_;
  if (at_ == sql_.size()) return {};
  const char c = sql_[at_];
  if (IsDigit(c)) return TakeNumber();
  if (c != '$' && IsWord(c)) return TakeWord();
  switch (c) {
    case '\'':
    case '"':
    case '`':
    case '$':
      if (const std::size_t size = opaque_.Open(sql_, at_, true); size != 0) {
        return TakeOpaque(at_ + size);
      }
      return c == '$' ? TakeDollar() : TakeSign();
    case '.':
      return IsDigit(At(at_ + 1)) ? TakeNumber() : TakeSign();
    case '@':
      return TakeVariable();
    case '?':
      return Take(TokenKind::kParameter, at_ + 1);
    default:
      return TakeSign();
  }
}

void Lexer::PassBlanks() {
  for (;;) {
    while (at_ < sql_.size() && IsBlank(sql_[at_])) ++at_;
    const char c = At(at_);
    if (c != '-' && c != '/' && c != '#' && c != '*') return;
    const std::size_t size = opaque_.Open(sql_, at_, true);
    if (size == 0) return;
    at_ += size;
    if (opaque_.Kind() != Opaque::kNone) {
      at_ = opaque_.Pass(sql_, at_, true);
    } else if (opaque_.InExecutableComment()) {
      // The version of the server, such as 40101 in /*!40101 code */.
      at_ = EndOfDigits(at_);
    }
  }
}

Token Lexer::Take(TokenKind kind, std::size_t end) noexcept {
  const Token token{kind, sql_.substr(begin_, end - begin_)};
  qualified_ =
      token.Is('.') && (last_kind_ == TokenKind::kWord || last_kind_ == TokenKind::kQuotedName);
  last_kind_ = kind;
  at_ = end;
  return token;
}

// `begin` is the end of the part's opening mark.
Token Lexer::TakeOpaque(std::size_t begin) {
  const TokenKind kind =
      opaque_.Kind() == Opaque::kText ? TokenKind::kText : TokenKind::kQuotedName;
  return Take(kind, opaque_.Pass(sql_, begin, true));
}

Token Lexer::TakeWord() {
  const std::size_t end = EndOfWord(at_);
  const char first = Lower(sql_[at_]);
  if (end == at_ + 1 && !qualified_) {
    const bool prefix =
        first == 'n' || first == 'x' || first == 'b' || (first == 'e' && rules_.escape_prefix);
    const bool unicode = first == 'u' && rules_.unicode_prefix && At(end) == '&';
    const char quote = At(unicode ? end + 1 : end);
    if ((prefix && quote == '\'') || (unicode && (quote == '\'' || quote == '"'))) {
      const std::size_t at = unicode ? end + 1 : end;
      return TakeOpaque(at + opaque_.Open(sql_, at, true));
    }
  }
  const Token word = Take(TokenKind::kWord, end);
  if (first != '_' || !rules_.character_sets || word.text.size() == 1) return word;
  // If a text follows, the word is the name of its character set: _utf8 'a'
  PassBlanks();
  const char next = Lower(At(at_));
  const char second = Lower(At(at_ + 1));
  const bool text = next == '\'' || next == '"' ||
                    ((next == 'x' || next == 'b') && second == '\'') ||
                    (next == '0' && (second == 'x' || second == 'b'));
  return text ? Next() : word;
}

Token Lexer::TakeNumber() {
  // A name may begin with digits: o.1a
  const char before = begin_ > 0 ? sql_[begin_ - 1] : ' ';
  if (sql_[at_] == '.') {
    // The dot of o.1a is not that of a number.
    if (IsWord(before) || std::string_view("\"`])").find(before) != std::string_view::npos) {
      return TakeSign();
    }
  } else if (qualified_) {
    return TakeWord();
  }
  const std::size_t end = EndOfNumber();
  const std::size_t word_end = EndOfWord(begin_);
  return word_end > end ? Take(TokenKind::kWord, word_end) : Take(TokenKind::kNumber, end);
}

Token Lexer::TakeVariable() {
  std::size_t name = at_;
  while (At(name) == '@') ++name;
  const std::size_t end = EndOfName(name);
  if (end == name || name > at_ + 2) return Take(TokenKind::kSign, name);
  const bool parameter =
      name == at_ + 1 && Lower(sql_[name]) == 'p' && end > name + 1 && EndOfDigits(name + 1) == end;
  return Take(parameter ? TokenKind::kParameter : TokenKind::kWord, end);
}

// Takes $1 or a word such as $a, as no dollar quote begins here.
Token Lexer::TakeDollar() {
  const std::size_t end = EndOfDigits(at_ + 1);
  return end > at_ + 1 ? Take(TokenKind::kParameter, end) : Take(TokenKind::kWord, EndOfWord(at_));
}

Token Lexer::TakeSign() {
  const char c = sql_[at_];
  if (c == ':') {
    // In a[low:high] there is no parameter.
    const char before = at_ > 0 ? sql_[at_ - 1] : ' ';
    const bool within =
        IsWord(before) || std::string_view(":'\"`])").find(before) != std::string_view::npos;
    const std::size_t end = EndOfName(at_ + 1);
    if (!within && end > at_ + 1) return Take(TokenKind::kParameter, end);
  }
  const auto next = static_cast<unsigned char>(At(at_ + 1));
  if (kFirstOfLongSigns[static_cast<unsigned char>(c)] && kSecondOfLongSigns[next]) {
    for (const std::string_view sign : kLongSigns) {
      // The asterisk may be that of the comment's end: /*! a ~*/
      if (sign.back() == '*' && opaque_.InExecutableComment()) continue;
      if (sql_.substr(at_, sign.size()) == sign) return Take(TokenKind::kSign, at_ + sign.size());
    }
  }
  return Take(TokenKind::kSign, at_ + 1);
}

std::size_t Lexer::EndOfDigits(std::size_t at) const noexcept {
  while (IsDigit(At(at)) || (rules_.grouped_digits && At(at) == '_' && IsDigit(At(at + 1)))) ++at;
  return at;
}

// The end of the number that begins the token: 5  5.  .5  5.5e-3  0x1F  0b101
std::size_t Lexer::EndOfNumber() const noexcept {
  std::size_t end = begin_;
  const char second = Lower(At(end + 1));
  if (At(end) == '0' && (second == 'x' || second == 'b')) {
    const auto is_digit = second == 'x' ? IsHexDigit : IsBinaryDigit;
    end += 2;
    while (is_digit(At(end))) ++end;
    if (end > begin_ + 2) return end;
    end = begin_;
  }
  end = EndOfDigits(end);
  if (At(end) == '.' && At(end + 1) != '.') end = EndOfDigits(end + 1);
  if (Lower(At(end)) == 'e') {
    const bool sign = At(end + 1) == '+' || At(end + 1) == '-';
    const std::size_t exponent = end + (sign ? 2 : 1);
    if (IsDigit(At(exponent))) end = EndOfDigits(exponent);
  }
  return end;
}

std::size_t Lexer::EndOfWord(std::size_t at) const noexcept {
  while (IsWord(At(at))) ++at;
  return at;
}

// Returns `at` if a dollar quote may begin there.
std::size_t Lexer::EndOfName(std::size_t at) const noexcept {
  return At(at) == '$' && rules_.dollar_quotes ? at : EndOfWord(at);
}

}  // namespace tarn::host

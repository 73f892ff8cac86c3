#include "sql/lexer.h"

#include <array>
#include <cstddef>
#include <string_view>

#include "sql/text.h"

namespace tarn::host {
namespace {

// The signs of several bytes. If two begin alike, the longer one is first.
constexpr std::string_view kLongSigns[] = {
    "<=>", "->>", "#>>", "!~*", "<=", ">=", "<>", "!=", "||", "&&", "<<",
    ">>",  "::",  ":=",  "->",  "=>", "..", "#>", "!~", "~*", "<@", "@>"};

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
  if (at_ == sql_.size()) return {};
  const char c = sql_[at_];
  const char next = At(at_ + 1);
  const std::size_t prefix = next == '\'' || next == '&' ? SizeOfTextPrefix() : 0;
  if (prefix != 0 || c == '\'' || c == '"' || c == '`' || c == '$') {
    const std::size_t quote = at_ + prefix;
    if (const std::size_t size = opaque_.Open(sql_, quote, true); size != 0) {
      const TokenKind kind = opaque_.Kind() == Opaque::kText ? TokenKind::kText : TokenKind::kName;
      return Take(kind, opaque_.Pass(sql_, quote + size, true));
    }
  }
  // The dot of o.1a is not that of a number.
  if (!qualified_ && (IsDigit(c) || (c == '.' && IsDigit(next) && !TouchesOperand()))) {
    const std::size_t end = EndOfNumber();
    // A name may begin with digits: 2fa
    const std::size_t end_of_word = EndOfWord(at_);
    if (end >= end_of_word) return Take(TokenKind::kValue, end);
  }
  if (c == '?' || (c == '$' && IsDigit(next))) {
    return Take(TokenKind::kValue, EndOfDigits(at_ + 1));
  }
  if (IsWord(c)) return Take(TokenKind::kWord, EndOfWord(at_));
  return c == '@' || c == ':' ? TakeVariable() : TakeSign();
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

// Takes the bytes up to `end`.
Token Lexer::Take(TokenKind kind, std::size_t end) noexcept {
  const Token token{kind, sql_.substr(at_, end - at_)};
  qualified_ = token.Is('.') && (last_kind_ == TokenKind::kWord || last_kind_ == TokenKind::kName);
  last_kind_ = kind;
  at_ = end;
  return token;
}

// @p0 and :name are parameters; @total and @@version are variables.
Token Lexer::TakeVariable() {
  const bool colon = sql_[at_] == ':';
  std::size_t name = at_ + 1;
  while (!colon && At(name) == '@') ++name;
  const std::size_t end = EndOfName(name);
  const std::size_t size = end - name;
  if (colon) {
    // In a[low:high] and a[:5] there is no parameter.
    const bool slice = TouchesOperand() || (At(at_ - 1) == '[' && IsDigit(At(name)));
    return size > 0 && !slice ? Take(TokenKind::kValue, end) : TakeSign();
  }
  if (name == at_ + 1 && size > 1 && Lower(sql_[name]) == 'p' && EndOfDigits(name + 1) == end) {
    return Take(TokenKind::kValue, end);
  }
  const bool variable = size > 0 && name <= at_ + 2 && rules_.variables;
  if (variable) return Take(TokenKind::kWord, end);
  return name == at_ + 1 ? TakeSign() : Take(TokenKind::kSign, name);
}

Token Lexer::TakeSign() {
  const auto byte = [this](std::size_t at) { return static_cast<unsigned char>(At(at)); };
  if (kFirstOfLongSigns[byte(at_)] && kSecondOfLongSigns[byte(at_ + 1)]) {
    for (const std::string_view sign : kLongSigns) {
      if (sign[0] != sql_[at_] || !sql_.substr(at_).starts_with(sign)) continue;
      // The asterisk may be that of the comment's end: /*! a ~*/. In a<@b the variable is @b.
      const bool shorter = (sign.back() == '*' && opaque_.InExecutableComment()) ||
                           (sign == "<@" && rules_.variables);
      if (!shorter) return Take(TokenKind::kSign, at_ + sign.size());
    }
  }
  return Take(TokenKind::kSign, at_ + 1);
}

// The size of the prefix if the token is a text or a name with one: N'a'  u&"a". Otherwise 0.
std::size_t Lexer::SizeOfTextPrefix() const noexcept {
  if (qualified_) return 0;
  const char first = Lower(sql_[at_]);
  if (At(at_ + 1) == '&') {
    const char quote = At(at_ + 2);
    return first == 'u' && rules_.unicode_prefix && (quote == '\'' || quote == '"') ? 2 : 0;
  }
  return first == 'n' || first == 'x' || first == 'b' || (first == 'e' && rules_.escape_prefix);
}

// The end of the number that begins the token: 5  5.  .5  5.5e-3  0x1F  0b101
std::size_t Lexer::EndOfNumber() const noexcept {
  const char second = sql_[at_] == '0' ? Lower(At(at_ + 1)) : '\0';
  if (second == 'x' || second == 'b' || (second == 'o' && rules_.grouped_digits)) {
    const char last = second == 'x' ? '9' : second == 'o' ? '7' : '1';
    const auto digit = [this, second, last](std::size_t at) {
      const char c = Lower(At(at));
      return (c >= '0' && c <= last) || (second == 'x' && c >= 'a' && c <= 'f');
    };
    std::size_t end = at_ + 2;
    while (digit(end) || (rules_.grouped_digits && At(end) == '_' && digit(end + 1))) ++end;
    if (end > at_ + 2) return end;
  }
  std::size_t end = EndOfDigits(at_);
  if (At(end) == '.' && At(end + 1) != '.') end = EndOfDigits(end + 1);
  if (Lower(At(end)) == 'e') {
    const std::size_t exponent = end + (At(end + 1) == '+' || At(end + 1) == '-' ? 2 : 1);
    if (IsDigit(At(exponent))) end = EndOfDigits(exponent);
  }
  return end;
}

std::size_t Lexer::EndOfDigits(std::size_t at) const noexcept {
  while (IsDigit(At(at)) || (rules_.grouped_digits && At(at) == '_' && IsDigit(At(at + 1)))) ++at;
  return at;
}

std::size_t Lexer::EndOfWord(std::size_t at) const noexcept {
  while (IsWord(At(at))) ++at;
  return at;
}

// Returns `at` if a dollar quote may begin there.
std::size_t Lexer::EndOfName(std::size_t at) const noexcept {
  return At(at) == '$' && rules_.dollar_quotes ? at : EndOfWord(at);
}

// Whether the byte before the token ends a name or a value: o.5  a[low:high]
bool Lexer::TouchesOperand() const noexcept {
  const char before = at_ > 0 ? sql_[at_ - 1] : ' ';
  return IsWord(before) || std::string_view("'\"`])").find(before) != std::string_view::npos;
}

}  // namespace tarn::host

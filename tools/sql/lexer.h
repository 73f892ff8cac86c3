// The words and signs of a statement.
#pragma once

#include <cstddef>
#include <string_view>

#include "sql/dialect.h"
#include "sql/opaque.h"

namespace tarn::host {

enum class TokenKind : unsigned char {
  kEnd,
  kWord,   // select  o1  @total  @@version  2fa
  kName,   // in quotes: "Order 5"  `a`
  kText,   // 'a'  N'a'  x'1F'  $$a$$
  kValue,  // a number without its sign, or a parameter: 5  1.5e3  0x1F  ?  @p0  :name  $1
  kSign,   // (  <=  ::
};

struct Token {
  TokenKind kind = TokenKind::kEnd;
  // A view of the statement. At least a byte, if the kind is not kEnd.
  std::string_view text;

  bool Is(char sign) const noexcept {
    return kind == TokenKind::kSign && text.size() == 1 && text[0] == sign;
  }
};

// Splits a statement into tokens. Blanks, comments and the marks of executable comments are left
// out: "select /* a */ 5" -> "select", "5". Any bytes make tokens: a byte that SQL does not use is
// a sign, and a quote that is not closed goes on up to the end of the statement.
//
// All calls together take time linear in the statement, and no memory except for the tag of a
// dollar quote. Not thread-safe.
class Lexer {
 public:
  // `sql` must outlive the lexer and its tokens.
  Lexer(std::string_view sql, Dialect dialect) noexcept
      : sql_(sql), rules_(RulesOf(dialect)), opaque_(dialect) {}

  // The next token, or one of kind kEnd if there are no more.
  Token Next();

 private:
  void PassBlanks();
  Token Take(TokenKind kind, std::size_t end) noexcept;
  Token TakeVariable();
  Token TakeSign();
  std::size_t SizeOfTextPrefix() const noexcept;
  std::size_t EndOfNumber() const noexcept;
  std::size_t EndOfDigits(std::size_t at) const noexcept;
  std::size_t EndOfWord(std::size_t at) const noexcept;
  std::size_t EndOfName(std::size_t at) const noexcept;
  bool TouchesOperand() const noexcept;
  char At(std::size_t at) const noexcept { return at < sql_.size() ? sql_[at] : '\0'; }

  std::string_view sql_;
  const DialectRules& rules_;
  OpaqueReader opaque_;
  std::size_t at_ = 0;
  TokenKind last_kind_ = TokenKind::kEnd;
  // Whether the last token was a dot after a name. If so, the next one is a name, too: o.1a
  bool qualified_ = false;
};

}  // namespace tarn::host

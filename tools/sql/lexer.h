// The words and signs of a statement.
#pragma once

#include <cstddef>
#include <string_view>

#include "sql/dialect.h"
#include "sql/opaque.h"

namespace tarn::host {

enum class TokenKind : unsigned char {
  kEnd,
  kWord,        // select  o1  @total  @@version  2fa
  kQuotedName,  // "Order 5"  `a`
  kText,        // 'a'  N'a'  x'1F'  $$a$$  _utf8 'a'
  kNumber,      // 5  1.5e3  .5  0x1F  without its sign
  kParameter,   // ?  @p0  :name  $1
  kSign,        // (  <=  ::
};

struct Token {
  TokenKind kind = TokenKind::kEnd;
  // As it is written, within the statement. At least a byte but for the end.
  std::string_view text;

  bool Is(char sign) const noexcept {
    return kind == TokenKind::kSign && text.size() == 1 && text[0] == sign;
  }
};

// Gives the tokens of a statement one by one. Blanks, comments and the marks of executable comments
// are passed over. Any bytes make tokens: a byte that SQL has no use for is a sign, and a quote
// that is not closed ends with the statement.
//
// Takes time linear in the statement, and no memory but for a dollar quote's tag.
class Lexer {
 public:
  // The statement must outlive the lexer and its tokens.
  Lexer(std::string_view sql, Dialect dialect) noexcept
      : sql_(sql), rules_(RulesOf(dialect)), opaque_(dialect) {}

  // The next token; of kind kEnd when there are no more.
  Token Next();

 private:
  void PassBlanks();
  Token Take(TokenKind kind, std::size_t end) noexcept;
  Token TakeOpaque(std::size_t begin);
  Token TakeWord();
  Token TakeNumber();
  Token TakeVariable();
  Token TakeDollar();
  Token TakeSign();
  std::size_t EndOfDigits(std::size_t at) const noexcept;
  std::size_t EndOfNumber() const noexcept;
  std::size_t EndOfWord(std::size_t at) const noexcept;
  std::size_t EndOfName(std::size_t at) const noexcept;
  char At(std::size_t at) const noexcept { return at < sql_.size() ? sql_[at] : '\0'; }

  std::string_view sql_;
  const DialectRules& rules_;
  OpaqueReader opaque_;
  std::size_t at_ = 0;
  // Where the token begins.
  std::size_t begin_ = 0;
  // Whether the last token was a dot after a name, so that the next token is a name, too.
  bool qualified_ = false;
  TokenKind last_kind_ = TokenKind::kEnd;
};

}  // namespace tarn::host

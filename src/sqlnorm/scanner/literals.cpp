#include "sqlnorm/scanner/literals.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/byte_class.h"
#include "sqlnorm/scanner/decimal_literal.h"

namespace tarn::sqlnorm {
namespace {

constexpr std::size_t kRoomForLiteral = kLongestPrintedDecimal + kPadding;

constexpr bool IsHexDigit(char c) noexcept {
  return IsDigit(c) || static_cast<unsigned char>((c | 0x20) - 'a') < 6;
}

char* PrintHex(std::string_view literal, char* out) noexcept {
  std::uint32_t value = 0;
  std::from_chars(literal.data() + 2, literal.data() + literal.size(), value, 16);
  return std::to_chars(out, out + kLongestPrintedDecimal, value).ptr;
}

// The Match functions are given the character that gives a literal away, and for a decimal `from`,
// where the text begins that no earlier literal has taken. The text is padded. Null begin: no
// literal.
struct Literal {
  const char* begin = nullptr;
  const char* end = nullptr;
};

// Where the exponent at `p` ends, sign and digits included; `p` itself if there is none.
const char* SkipExponent(const char* p) noexcept {
  if ((*p | 0x20) != 'e') return p;
  const char* const digits = p[1] == '+' || p[1] == '-' ? p + 2 : p + 1;
  return IsDigit(*digits) ? SkipDigits(digits) : p;
}

// digits.digits, perhaps with an exponent, between characters that belong to no word.
Literal MatchDecimal(const char* from, const char* text, const char* dot) noexcept {
  const char* begin = dot;
  while (begin != from && IsDigit(begin[-1])) --begin;
  if (begin == dot || !IsDigit(dot[1]) || (begin != text && IsWord(begin[-1]))) return {};
  const char* const end = SkipExponent(SkipDigits(dot + 1));
  return IsWord(*end) ? Literal{} : Literal{begin, end};
}

// 0x and one to eight digits, as a word of its own.
Literal MatchHex(const char* text, const char* x) noexcept {
  constexpr std::ptrdiff_t kMostDigits = 8;
  const char* const begin = x - 1;
  if (*begin != '0' || (begin != text && IsWord(begin[-1]))) return {};
  const char* end = x + 1;
  while (IsHexDigit(*end)) ++end;
  const std::ptrdiff_t digits = end - (x + 1);
  return digits == 0 || digits > kMostDigits || IsWord(*end) ? Literal{} : Literal{begin, end};
}

// The first place at or after `p` that a literal may hang on: a digit before a dot and another
// digit, or before an x. `end` if there is none. Digits are told by their upper half, which they
// share with : ; < = > and ?; the Match functions look closer.
const char* FindCandidate(const char* p, const char* end) noexcept {
  return FindByBlock(p, end, [](const char* q) noexcept -> ByteBlock {
    const auto is_digit = [](ByteBlock block) { return (block & 0xF0) == 0x30; };
    const ByteBlock next = LoadBlock(q + 1);
    return is_digit(LoadBlock(q)) &
           (((next == '.') & is_digit(LoadBlock(q + 2))) | ((next | 0x20) == 'x'));
  });
}

}  // namespace

std::size_t CanonicalizeLiterals(WorkingBuffer& working, std::size_t length) {
  const char* const first = FindCandidate(working.Data(), working.Data() + length);
  if (first == working.Data() + length) return length;

  WorkingBuffer source;
  source.Reserve(length + kPadding, 0);
  std::memcpy(source.Data(), working.Data(), length + kPadding);
  const char* const text = source.Data();
  const char* const end = text + length;
  const char* from = text;  // what no literal has taken yet
  char* out = working.Data();
  const char* p = text + (first - working.Data());
  while (p != end) {
    const bool decimal = p[1] == '.';
    const Literal literal = decimal ? MatchDecimal(from, text, p + 1) : MatchHex(text, p + 1);
    if (literal.begin != nullptr) {
      // Room for this literal and for all the rest as it stands.
      const auto used = static_cast<std::size_t>(out - working.Data());
      const std::size_t needed = used + static_cast<std::size_t>(end - from) + kRoomForLiteral;
      if (needed > working.Capacity()) {
        working.Reserve(needed + needed / 2, used);
        out = working.Data() + used;
      }
      out = std::copy(from, literal.begin, out);
      const std::string_view literal_text(literal.begin,
                                          static_cast<std::size_t>(literal.end - literal.begin));
      out = decimal ? ReprintDecimal(literal_text, out) : PrintHex(literal_text, out);
      from = literal.end;
    }
    p = FindCandidate(std::max(p + 1, from), end);
  }
  out = std::copy(from, end, out);
  std::memset(out, 0, kPadding);
  return static_cast<std::size_t>(out - working.Data());
}

}  // namespace tarn::sqlnorm

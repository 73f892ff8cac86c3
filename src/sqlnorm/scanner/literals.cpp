#include "sqlnorm/scanner/literals.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>

#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/byte_class.h"
#include "sqlnorm/scanner/decimal_literal.h"

namespace tarn::sqlnorm {
namespace {

constexpr bool IsHexDigit(char c) noexcept {
  return IsDigit(c) || static_cast<unsigned char>((c | 0x20) - 'a') < 6;
}

// The end of the exponent at `p`, sign and digits included; `p` itself if there is none.
const char* SkipExponent(const char* p) noexcept {
  if ((*p | 0x20) != 'e') return p;
  const char* const digits = p[1] == '+' || p[1] == '-' ? p + 2 : p + 1;
  return IsDigit(*digits) ? SkipDigits(digits) : p;
}

// The Match functions take the position of the dot or the x. They return whether it is within a
// whole literal that no word character touches.

// Decimal-literal canonicalization: digits.digits, with or without an exponent.
bool MatchDecimal(const char* text, const char* dot, DecimalLiteral& literal) noexcept {
  const char* begin = dot;
  while (begin != text && IsDigit(begin[-1])) --begin;
  if (begin == dot || !IsDigit(dot[1]) || (begin != text && IsWord(begin[-1]))) return false;
  const char* const exponent = SkipDigits(dot + 1);
  const char* const end = SkipExponent(exponent);
  literal = {begin, dot, exponent, end};
  return !IsWord(*end);
}

struct HexLiteral {
  const char* begin;
  const char* end;
};

// Hexadecimal-literal conversion: 0x and one to eight digits. It reads at most nine, so that a long
// number costs no more.
bool MatchHex(const char* text, const char* x, HexLiteral& literal) noexcept {
  constexpr std::ptrdiff_t kMostDigits = 8;
  const char* const digits = x + 1;
  const char* end = digits;
  while (end - digits < kMostDigits && IsHexDigit(*end)) ++end;
  literal = {x - 1, end};
  const bool begins = *literal.begin == '0' && (literal.begin == text || !IsWord(x[-2]));
  return begins && end != digits && !IsWord(*end);
}

char* PrintHex(const HexLiteral& literal, char* out) noexcept {
  std::uint32_t value = 0;
  std::from_chars(literal.begin + 2, literal.end, value, 16);
  return std::to_chars(out, out + kRoomForDecimal, value).ptr;
}

// Copies a text, and prints anew those of its candidates that are literals.
class Reprinter {
 public:
  Reprinter(Text source, WorkingBuffer& output) noexcept
      : source_(source), copied_(source.data), output_(output) {}

  // Takes a byte that MarkLiteralCandidates marks. Returns the position up to which it has
  // processed the text.
  const char* Candidate(const char* p) {
    DecimalLiteral decimal{};
    HexLiteral hex{};
    if (p[1] == '.') {
      if (!MatchDecimal(source_.data, p + 1, decimal)) return p + 1;
      CopyUpTo(decimal.begin);
      out_ = ReprintDecimal(decimal, out_);
      copied_ = decimal.end;
    } else {
      if (!MatchHex(source_.data, p + 1, hex)) return p + 1;
      CopyUpTo(hex.begin);
      out_ = PrintHex(hex, out_);
      copied_ = hex.end;
    }
    return copied_;
  }

  // The whole text with its literals printed anew, or the source itself if there were none.
  Text Finish() noexcept {
    if (out_ == nullptr) return source_;
    out_ = std::copy(copied_, End(), out_);
    Pad(out_);
    return {output_.Data(), static_cast<std::size_t>(out_ - output_.Data())};
  }

 private:
  // Copies the text before `p`. The buffer then has space for a literal and for the unchanged rest.
  void CopyUpTo(const char* p) {
    const std::size_t used = out_ == nullptr ? 0 : static_cast<std::size_t>(out_ - output_.Data());
    const std::size_t needed =
        used + static_cast<std::size_t>(End() - copied_) + kRoomForDecimal + kPadding;
    if (needed > output_.Capacity()) output_.Reserve(needed + needed / 2, used);
    out_ = std::copy(copied_, p, output_.Data() + used);
  }

  const char* End() const noexcept { return source_.data + source_.length; }

  Text source_;
  const char* copied_;  // the end of the part of the source that has been copied
  WorkingBuffer& output_;
  char* out_ = nullptr;  // the end of the output; null before the first literal
};

}  // namespace

Text CanonicalizeLiterals(Text source, const char* first, WorkingBuffer& output) {
  Reprinter reprinter(source, output);
  VisitMarks(first, source.data + source.length, MarkLiteralCandidates,
             [&reprinter](const char* p) { return reprinter.Candidate(p); });
  return reprinter.Finish();
}

void CheckDecimalRanges(const char* text, std::size_t length) {
  VisitMarks(text, text + length, MarkLiteralCandidates, [text](const char* p) {
    DecimalLiteral decimal{};
    if (p[1] != '.' || !MatchDecimal(text, p + 1, decimal)) return p + 1;
    CheckDecimalRange(decimal);
    return decimal.end;
  });
}

}  // namespace tarn::sqlnorm

#include "sqlnorm/scanner/decimal_literal.h"

#include <algorithm>
#include <array>
#include <bit>
#include <boost/lexical_cast/bad_lexical_cast.hpp>
#include <boost/throw_exception.hpp>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include "sqlnorm/scanner/byte_class.h"

namespace tarn::sqlnorm {
namespace {

constexpr int kPrecision = 17;

// Whether a decimal literal that std::from_chars refuses is too small rather than too large for a
// double: whether its first digit other than 0 stands for less than one.
bool IsTooSmall(std::string_view literal) noexcept {
  const std::size_t exponent_mark = literal.find_first_of("eE");
  const std::string_view mantissa = literal.substr(0, exponent_mark);
  const std::size_t dot = mantissa.find('.');
  const std::size_t first = mantissa.find_first_not_of("0.");
  const auto digits_before_dot = static_cast<std::int64_t>(dot) - static_cast<std::int64_t>(first);
  if (exponent_mark == std::string_view::npos) return digits_before_dot < 0;
  const char sign = literal[exponent_mark + 1];
  std::int64_t exponent = 0;
  const std::size_t digits = exponent_mark + (sign == '+' || sign == '-' ? 2 : 1);
  const auto parsed =
      std::from_chars(literal.data() + digits, literal.data() + literal.size(), exponent);
  // Beyond what any mantissa that fits into memory can make up for.
  constexpr std::int64_t kDecidesAlone = 1'000'000'000'000'000'000;
  if (parsed.ec != std::errc() || exponent > kDecidesAlone) return sign == '-';
  return digits_before_dot + (sign == '-' ? -exponent : exponent) < 0;
}

double ParseDecimal(std::string_view literal) {
  double value = 0;
  const auto parsed = std::from_chars(literal.data(), literal.data() + literal.size(), value);
  if (parsed.ec == std::errc()) return value;
  if (IsTooSmall(literal)) return 0;
  boost::throw_exception(boost::bad_lexical_cast(typeid(std::string), typeid(double)));
}

__extension__ using Wide = unsigned __int128;

constexpr std::array<std::uint64_t, 20> kPowersOfTen = [] {
  std::array<std::uint64_t, 20> powers{1};
  for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = 10 * powers[i - 1];
  return powers;
}();

// The common case at a fraction of the general one's cost: no exponent, up to 15 digits, a value of
// 0.001 or more. The digits as an integer and the power of ten to divide by are exact in a double,
// so one division gives the nearest one; and that double times a power of ten is exact in 128 bits,
// so one shift gives the digits to print. Returns null for any other literal.
char* ReprintShortDecimal(std::string_view literal, char* out) noexcept {
  constexpr std::size_t kMostDigits = 15;
  if (literal.size() > kMostDigits + 1) return nullptr;
  const std::size_t dot = literal.find('.');
  std::uint64_t digits = 0;
  for (const char c : literal) {
    if (c == '.') continue;
    if (!IsDigit(c)) return nullptr;
    digits = 10 * digits + static_cast<std::uint64_t>(c - '0');
  }
  if (digits == 0) {
    *out = '0';
    return out + 1;
  }
  // The decimal exponent of the first digit other than 0.
  const auto first = static_cast<int>(literal.find_first_not_of("0."));
  const int exponent = static_cast<int>(dot) - first - (first < static_cast<int>(dot) ? 1 : 0);
  if (exponent < -3) return nullptr;
  const double value =
      static_cast<double>(digits) / static_cast<double>(kPowersOfTen[literal.size() - dot - 1]);

  // value is mantissa / 2^shift, by the layout of IEEE 754.
  constexpr int kMantissaBits = 52;
  constexpr int kExponentBias = 1023;
  constexpr std::uint64_t kHiddenBit = std::uint64_t{1} << kMantissaBits;
  const auto bits = std::bit_cast<std::uint64_t>(value);
  const std::uint64_t mantissa = (bits & (kHiddenBit - 1)) | kHiddenBit;
  const int shift = kMantissaBits + kExponentBias - static_cast<int>(bits >> kMantissaBits);
  const Wide scaled =
      Wide{mantissa} * kPowersOfTen[static_cast<std::size_t>(kPrecision - 1 - exponent)];
  auto printed = static_cast<std::uint64_t>(scaled >> shift);
  const Wide rest = scaled - (Wide{printed} << shift);
  const Wide half = Wide{1} << (shift - 1);
  if (rest > half || (rest == half && printed % 2 != 0)) ++printed;
  // One digit less: the double lies below a power of ten that the literal does not.
  if (printed < kPowersOfTen[kPrecision - 1]) return nullptr;

  char text[kPrecision];
  std::to_chars(text, text + kPrecision, printed);
  const char* text_end = text + kPrecision;
  while (text_end[-1] == '0') --text_end;
  const char* const fraction = exponent < 0 ? text : text + exponent + 1;
  if (exponent < 0) *out++ = '0';
  out = std::copy<const char*>(text, fraction, out);
  if (text_end > fraction) {
    *out++ = '.';
    for (int zeros = -1 - exponent; zeros > 0; --zeros) *out++ = '0';
    out = std::copy(fraction, text_end, out);
  }
  return out;
}

}  // namespace

char* ReprintDecimal(std::string_view literal, char* out) {
  char* const end = ReprintShortDecimal(literal, out);
  if (end != nullptr) return end;
  return std::to_chars(out, out + kLongestPrintedDecimal, ParseDecimal(literal),
                       std::chars_format::general, kPrecision)
      .ptr;
}

}  // namespace tarn::sqlnorm

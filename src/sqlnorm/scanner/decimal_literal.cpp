#include "sqlnorm/scanner/decimal_literal.h"

#include <algorithm>
#include <array>
#include <bit>
#include <boost/lexical_cast/bad_lexical_cast.hpp>
#include <boost/throw_exception.hpp>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "sqlnorm/scanner/byte_block.h"

namespace tarn::sqlnorm {
namespace {

constexpr int kPrecision = 17;

// Whether a literal that std::from_chars refuses is too small for a double rather than too large:
// that is so if its first digit other than 0 is worth less than one.
bool IsTooSmall(const DecimalLiteral& literal) noexcept {
  const std::string_view mantissa(literal.begin,
                                  static_cast<std::size_t>(literal.exponent - literal.begin));
  const char* const first = literal.begin + mantissa.find_first_not_of("0.");
  const std::int64_t digits_before_dot = literal.dot - first;
  if (literal.exponent == literal.end) return digits_before_dot < 0;
  const char sign = literal.exponent[1];
  std::int64_t exponent = 0;
  const auto parsed = std::from_chars(literal.exponent + (sign == '+' || sign == '-' ? 2 : 1),
                                      literal.end, exponent);
  // No mantissa that fits into memory makes up for a greater exponent.
  constexpr std::int64_t kDecidesAlone = 1'000'000'000'000'000'000;
  if (parsed.ec != std::errc() || exponent > kDecidesAlone) return sign == '-';
  return digits_before_dot + (sign == '-' ? -exponent : exponent) < 0;
}

double ParseDecimal(const DecimalLiteral& literal) {
  double value = 0;
  const auto parsed = std::from_chars(literal.begin, literal.end, value);
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

// The powers of ten that are exact in a double.
constexpr std::array<double, 23> kExactPowers = [] {
  std::array<double, 23> powers{1};
  for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = 10 * powers[i - 1];
  return powers;
}();

// The number of digits of `number`, which must not be 0.
int CountDigits(std::uint64_t number) noexcept {
  // 1233 / 4096 is a little more than the decimal logarithm of 2.
  const int estimate = (64 - std::countl_zero(number)) * 1233 >> 12;
  return estimate + (number >= kPowersOfTen[static_cast<std::size_t>(estimate)] ? 1 : 0);
}

// Eight decimal digits side by side in one number, the first one in its lowest byte; a digit's byte
// is its value.
constexpr std::uint64_t kAsciiDigits = 0x3030303030303030;

// The number that eight such digits form: made of pairs of them, pairs of pairs, and both halves.
std::uint64_t FromDigits(std::uint64_t digits) noexcept {
  digits = (digits * 10 + (digits >> 8)) & 0x00FF00FF00FF00FF;
  digits = (digits * 100 + (digits >> 16)) & 0x0000FFFF0000FFFF;
  return (digits * 10000 + (digits >> 32)) & 0xFFFFFFFF;
}

// The inverse of FromDigits: the eight digits of a number below 10^8. Multiplying by the
// reciprocals, rounded up, divides every part at once.
std::uint64_t ToDigits(std::uint64_t number) noexcept {
  const std::uint64_t halves = (number / 10000) | (number % 10000) << 32;
  const std::uint64_t hundreds = (halves * 10486 >> 20) & 0x0000007F0000007F;
  const std::uint64_t pairs = hundreds | (halves - hundreds * 100) << 16;
  const std::uint64_t tens = (pairs * 103 >> 10) & 0x000F000F000F000F;
  return tens | (pairs - tens * 10) << 8;
}

// The digits of a mantissa that has no more than 15 of them, as a number.
std::uint64_t DigitsOf(const DecimalLiteral& literal) noexcept {
  constexpr unsigned kBytes = 16;
  const Wide text = LoadEight(literal.begin) | Wide{LoadEight(literal.begin + 8)} << 64;
  const auto before_dot = static_cast<unsigned>(literal.dot - literal.begin);
  const auto digits = static_cast<unsigned>(literal.exponent - literal.begin) - 1;
  const Wide without_dot =
      (text & ((Wide{1} << 8 * before_dot) - 1)) | (text >> 8 * (before_dot + 1) << 8 * before_dot);
  // Moves the digits to the end of the sixteen bytes. The bytes before them become 0, the value of
  // the digit 0.
  const Wide moved = without_dot << 8 * (kBytes - digits);
  const Wide values = moved & (Wide{0x0F0F0F0F0F0F0F0F} << 64 | 0x0F0F0F0F0F0F0F0F);
  constexpr std::uint64_t kTenToEight = 100'000'000;
  return FromDigits(static_cast<std::uint64_t>(values)) * kTenToEight +
         FromDigits(static_cast<std::uint64_t>(values >> 64));
}

// The value of an exponent of one or two digits, 0 if there is no exponent, nothing for a longer
// one.
std::optional<int> ShortExponent(const DecimalLiteral& literal) noexcept {
  const char* p = literal.exponent;
  if (p == literal.end) return 0;
  const char sign = *++p;
  if (sign == '+' || sign == '-') ++p;
  constexpr std::ptrdiff_t kMostDigits = 2;
  if (literal.end - p > kMostDigits) return std::nullopt;
  int number = *p - '0';
  if (literal.end - p == kMostDigits) number = 10 * number + (p[1] - '0');
  return sign == '-' ? -number : number;
}

// Prints the common literals at a fraction of the general cost: up to 15 digits, an exponent of up
// to two digits, a value from 0.001 to less than 10^15. Nearly free of branches, since a literal's
// content can't be predicted. Returns null for any other literal.
//
// The digits as an integer and the power of ten to divide or multiply by are exact in a double, so
// one operation gives the double nearest to the literal. That double times a power of ten is exact
// in 128 bits, so one shift gives the digits to print.
//
// Two cases need no care. First, a double half-way between two numbers of 17 digits: it would have
// 18 significant digits, the last of them worth 2^-j. With f digits after the literal's dot it
// would differ from the literal by at least 1 / (5^f 2^j), which is more than any literal differs
// from its nearest double. Second, a double whose first digit is one position after the literal's:
// only a literal that is a power of ten could have one, since that double is below the power, but
// the doubles of 0.1, 0.01 and 0.001 are greater than these.
char* ReprintShortDecimal(const DecimalLiteral& literal, char* out) noexcept {
  constexpr std::ptrdiff_t kMostDigits = 15;
  constexpr int kLeastExponent = -3;
  constexpr int kGreatestExponent = 14;
  if (literal.exponent - literal.begin > kMostDigits + 1) return nullptr;
  const std::optional<int> written_exponent = ShortExponent(literal);
  if (!written_exponent) return nullptr;
  const std::uint64_t digits = DigitsOf(literal);
  if (digits == 0) {
    *out = '0';
    return out + 1;
  }
  const int power = *written_exponent - static_cast<int>(literal.exponent - literal.dot - 1);
  // The decimal exponent of the first digit other than 0.
  const int exponent = CountDigits(digits) - 1 + power;
  if (exponent < kLeastExponent || exponent > kGreatestExponent) return nullptr;
  // 15 digits and such an exponent give a power from -17 to 14.
  const double scale = kExactPowers[static_cast<std::size_t>(std::abs(power))];
  const auto integer = static_cast<double>(digits);
  const double value = power < 0 ? integer / scale : integer * scale;

  // value is mantissa / 2^shift, by the layout of IEEE 754.
  constexpr int kMantissaBits = 52;
  constexpr int kExponentBias = 1023;
  constexpr std::uint64_t kHiddenBit = std::uint64_t{1} << kMantissaBits;
  const auto bits = std::bit_cast<std::uint64_t>(value);
  const std::uint64_t mantissa = (bits & (kHiddenBit - 1)) | kHiddenBit;
  const int shift = kMantissaBits + kExponentBias - static_cast<int>(bits >> kMantissaBits);
  const Wide scaled =
      Wide{mantissa} * kPowersOfTen[static_cast<std::size_t>(kPrecision - 1 - exponent)];
  const Wide half = Wide{1} << (shift - 1);
  const auto printed = static_cast<std::uint64_t>((scaled + half) >> shift);

  // Three zeros, for a value below one, then the 17 digits.
  constexpr std::uint64_t kTenToEight = 100'000'000;
  const std::uint64_t second_eight = ToDigits(printed / kTenToEight % kTenToEight);
  const std::uint64_t third_eight = ToDigits(printed % kTenToEight);
  constexpr std::size_t kCopied = 24;
  char text[2 * kCopied] = "000";
  char* const first = text - kLeastExponent;
  *first = static_cast<char>('0' + printed / kPowersOfTen[kPrecision - 1]);
  StoreEight(second_eight | kAsciiDigits, first + 1);
  StoreEight(third_eight | kAsciiDigits, first + 9);

  // The output begins with the digit before the dot and ends with the last digit other than 0.
  const int leading_zeros = std::max(-exponent, 0);
  const char* const from = first - leading_zeros;
  const int before_dot = std::max(exponent, 0) + 1;
  const int significant = third_eight != 0    ? kPrecision - std::countl_zero(third_eight) / 8
                          : second_eight != 0 ? kPrecision - 8 - std::countl_zero(second_eight) / 8
                                              : 1;
  const int length = leading_zeros + significant;
  std::memcpy(out, from, kCopied);
  std::memcpy(out + before_dot + 1, from + before_dot, kCopied);
  out[before_dot] = '.';
  return out + (length > before_dot ? length + 1 : before_dot);
}

// Prints any number that is not negative, as printf's "%.17g" does.
char* PrintDecimal(double value, char* out) noexcept {
  constexpr double kLeastFixed = 1e-4;
  constexpr double kLeastScientific = 1e17;
  char* const limit = out + kRoomForDecimal;
  if (value == 0 || (value >= kLeastFixed && value < kLeastScientific)) {
    return std::to_chars(out, limit, value, std::chars_format::general, kPrecision).ptr;
  }
  // Takes an eighth less time than the general format, which looks for the exponent first.
  const char* const end =
      std::to_chars(out, limit, value, std::chars_format::scientific, kPrecision - 1).ptr;
  const char* const exponent = out + kPrecision + 1;
  // Without the zeros at the end of the fraction, and without a dot that is left alone.
  char* digits_end = out + kPrecision + 1;
  while (digits_end[-1] == '0') --digits_end;
  if (digits_end[-1] == '.') --digits_end;
  return std::copy(exponent, end, digits_end);
}

}  // namespace

char* ReprintDecimal(const DecimalLiteral& literal, char* out) {
  char* const end = ReprintShortDecimal(literal, out);
  if (end != nullptr) return end;
  return PrintDecimal(ParseDecimal(literal), out);
}

void CheckDecimalRange(const DecimalLiteral& literal) {
  constexpr std::ptrdiff_t kAlwaysInRange = std::numeric_limits<double>::max_exponent10;
  const bool in_range =
      literal.exponent == literal.end && literal.dot - literal.begin <= kAlwaysInRange;
  if (!in_range) ParseDecimal(literal);
}

}  // namespace tarn::sqlnorm

// Tests each lower layer of the scanner against a plain form of it, so that the comparison of the
// two engines need not find its faults by luck.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "sqlnorm/scanner/alias_table.h"
#include "sqlnorm/scanner/byte_class.h"
#include "sqlnorm/scanner/decimal_literal.h"
#include "sqlnorm/scanner/elements.h"
#include "support/random_statements.h"

namespace tarn::sqlnorm {
namespace {

using namespace std::string_view_literals;

// Records where each element begins and ends, and up to where the text had been taken before each
// sign.
class Recorder {
 public:
  const char* Word(const char* begin, const char* end) {
    places_.insert(places_.end(), {begin, end});
    return end;
  }
  const char* Sign(const char* p, const char* taken) {
    places_.insert(places_.end(), {taken, p, nullptr});
    // Takes the next sign too, if there is one, as the writer does with operators.
    return *p == ',' && p[1] == '.' ? p + 2 : p + 1;
  }

  bool operator==(const Recorder&) const = default;

 private:
  std::vector<const char*> places_;
};

TEST(Elements, AreTheSameByMasksAsByteByByte) {
  constexpr std::string_view kAlphabet = "a1_ \t.,(\x80\0"sv;
  constexpr std::size_t kLongest = 4;
  constexpr std::size_t kOffsets = 64;
  const auto compare = [](const std::string& text) {
    const std::string padded = text + std::string(kPadding, '\0');
    Recorder plain;
    Recorder masks;
    VisitElementsPlainly(padded.data(), text.size(), plain);
    VisitElements(padded.data(), text.size(), masks);
    ASSERT_EQ(plain, masks) << text;
  };
  for (std::size_t length = 0, sequences = 1; length <= kLongest;
       ++length, sequences *= kAlphabet.size()) {
    for (std::size_t sequence = 0; sequence < sequences; ++sequence) {
      std::string text;
      for (std::size_t rest = sequence; text.size() < length; rest /= kAlphabet.size()) {
        text += kAlphabet[rest % kAlphabet.size()];
      }
      for (std::size_t offset = 0; offset < kOffsets; ++offset) {
        ASSERT_NO_FATAL_FAILURE(compare(std::string(offset, ' ') + text));
      }
      // Words before and after it that cross the end of the block.
      ASSERT_NO_FATAL_FAILURE(compare("a" + std::string(kOffsets - 3, '1') + text + "1a"));
      ASSERT_NO_FATAL_FAILURE(compare(std::string(kOffsets - 2, '1') + text + "a1"));
    }
  }
}

// printf's text of a literal's value; empty if no double can hold the value.
std::string Printed(const std::string& literal) {
  const double value = std::strtod(literal.c_str(), nullptr);
  if (std::isinf(value)) return "";
  std::array<char, kRoomForDecimal> text{};
  std::snprintf(text.data(), text.size(), "%.17g", value);
  return text.data();
}

std::string Reprinted(std::string literal) {
  const std::size_t size = literal.size();
  literal.resize(size + kPadding);
  const std::size_t exponent = std::min(literal.find_first_of("eE"), size);
  const DecimalLiteral parts{literal.data(), literal.data() + literal.find('.'),
                             literal.data() + exponent, literal.data() + size};
  std::array<char, kRoomForDecimal> text{};
  try {
    return {text.data(), ReprintDecimal(parts, text.data())};
  } catch (const std::bad_cast&) {
    EXPECT_THROW(CheckDecimalRange(parts), std::bad_cast);
    return "";
  }
}

TEST(Decimals, ArePrintedAsPrintfPrintsThem) {
  std::vector<std::string> literals{
      "0.0", "00.00", "0.0e5", "999999999999999.9", "9999999999999999.9", "1.7976931348623157e308",
      "1.7976931348623159e308", "1.0e309", "4.9406564584124654e-324", "2.4e-324", "0.1e-400",
      // The sum of the exponent and the digits does not fit into a 64-bit integer.
      "1.0e9223372036854775807", "100.5E+9223372036854775806", "0.01e-9223372036854775807",
      "1.0e18446744073709551616", "0.1e-18446744073709551616", std::string(309, '9') + ".0",
      std::string(400, '0') + "1.5", "0." + std::string(400, '0') + "1",
      std::string(320, '1') + ".0e-300", std::string(700, '1') + ".0e-300",
      "0." + std::string(400, '0') + "1e+50"};
  for (int exponent = -330; exponent <= 310; ++exponent) {
    for (const char* mantissa : {"1.0", "0.99999999999999", "0.999999999999999", "1.00000000000001",
                                 "0.9999999999999999", "1.0000000000000002"}) {
      literals.push_back(mantissa + ("e" + std::to_string(exponent)));
    }
  }
  for (int digits = 1; digits <= 25; ++digits) {
    for (const char digit : {'1', '5', '9'}) {
      literals.push_back(std::string(static_cast<std::size_t>(digits), digit) + ".5");
      literals.push_back("0." + std::string(static_cast<std::size_t>(digits - 1), '0') + digit);
    }
  }
  test::RandomStatements random(1);
  constexpr int kRandom = 1'000'000;
  for (int i = 0; i < kRandom; ++i) literals.push_back(random.Decimal());
  for (const std::string& literal : literals)
    ASSERT_EQ(Reprinted(literal), Printed(literal)) << literal;
}

// Asks the table for the number of each alias of a text, and compares it with a map's.
struct AliasNumbers {
  const char* Word(const char* begin, const char* end) {
    if (IsAlias(begin, end)) {
      const std::string alias(begin, end);
      const auto number = static_cast<std::uint32_t>(expected.size() + 1);
      EXPECT_EQ(table.NumberOf(begin, end), expected.try_emplace(alias, number).first->second)
          << alias;
    }
    return end;
  }
  static const char* Sign(const char* p, const char* /*taken*/) { return p + 1; }

  AliasTable table;
  std::map<std::string, std::uint32_t> expected;
};

TEST(AliasTable, NumbersTextsInOrderOfFirstAppearance) {
  std::mt19937_64 random(1);
  const auto below = [&random](std::size_t bound) { return random() % bound; };
  const auto digits = [&below](std::size_t count) {
    std::string text(count, '0');
    for (char& digit : text) digit = static_cast<char>('0' + below(10));
    return text;
  };
  constexpr int kTexts = 400;
  for (int i = 0; i < kTexts; ++i) {
    // Numbers of aliases below and above the limits for comparing one by one and for std::sort;
    // common digits up to the ends of chunks and beyond; aliases that are the begin of another.
    const std::size_t count = std::array<std::size_t, 6>{1, 15, 16, 17, 90, 2000}[below(6)];
    const std::string common = digits(std::array<std::size_t, 4>{0, 7, 8, 25}[below(4)]);
    std::vector<std::string> aliases;
    while (aliases.size() < count) {
      aliases.push_back((below(3) == 0 ? "t" : "t" + common) + digits(1 + below(1 + below(20))));
    }
    std::string text;
    for (std::size_t n = below(3 * count); n != 0; --n) {
      // The digits before "t" are a word of their own. "/", ":" and "\xB7" are close to the digits.
      text += aliases[below(count)] +
              std::array{" ", ",", " 12", " xt1 ", ".t1_", ":", "/", "\xB7"}[below(8)];
    }
    const std::size_t length = text.size();
    text.resize(length + kPadding);
    AliasNumbers numbers{AliasTable(text.data() + length), {}};
    VisitElements(text.data(), length, numbers);
    EXPECT_EQ(numbers.table.Count(), numbers.expected.size());
  }
}

}  // namespace
}  // namespace tarn::sqlnorm

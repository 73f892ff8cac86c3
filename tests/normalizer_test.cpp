// Tests the normalizer: its tables of texts; the scanner against the patterns, which define the
// text, on tables, on all short sequences of tokens, on random and on hostile statements; and how
// its work grows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <boost/lexical_cast/bad_lexical_cast.hpp>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <locale>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "plugin/plugin.h"
#include "sqlnorm/normalize_sql.h"
#include "sqlnorm/patterns/pattern_engine.h"
#include "sqlnorm/scanner/scanner_engine.h"
#include "support/allocations.h"
#include "support/case_file.h"
#include "support/compare_engines.h"
#include "support/growth_families.h"
#include "support/random_statements.h"
#include "support/surroundings.h"

namespace tarn::test {
namespace {

using sqlnorm::NormalizeByPatterns;
using sqlnorm::NormalizeByScanner;

// The rows of one section, whose heading is "ID FIRST LAST".
using Section = std::vector<CaseRow>;

std::vector<Section> StepSections() {
  std::vector<Section> sections;
  for (const char* file : {"pattern_steps.txt", "canonical_text.txt"}) {
    for (CaseRow& row : ReadCases(file)) {
      const bool first = sections.empty() || sections.back().front().section != row.section;
      if (first) sections.emplace_back();
      sections.back().push_back(std::move(row));
    }
  }
  return sections;
}

class Steps : public testing::TestWithParam<Section> {};

TEST_P(Steps, RewriteAsTheirTableSays) {
  std::istringstream heading(GetParam().front().section);
  std::string id;
  int first = 0;
  int last = 0;
  ASSERT_TRUE(heading >> id >> first >> last);
  Tally tally;
  for (const CaseRow& row : GetParam()) {
    const std::size_t columns = row.label == "Same" ? 1 : 2;
    for (std::size_t i = 0; i == 0 || i < row.texts.size(); i += columns) {
      const std::string& after = row.texts.at(i + columns - 1);
      EXPECT_EQ(sqlnorm::RunSteps(row.texts[i], first, last), after) << row;
    }
    // Also compares the engines on the text, alone and after other parts that are rewritten.
    for (const std::string& text : row.texts) {
      for (const char* frame : {"", "select t7.a, ", "values (1),"}) tally.Compare(frame + text);
    }
  }
  EXPECT_TRUE(tally.AllSame());
}

INSTANTIATE_TEST_SUITE_P(Cases, Steps, testing::ValuesIn(StepSections()), [](const auto& instance) {
  const std::string& heading = instance.param.front().section;
  // The same rule has a section of its own in each file.
  return heading.substr(0, heading.find(' ')) + std::to_string(instance.index);
});

class Exhaustive : public testing::TestWithParam<CaseRow> {};

void CompareAll(const std::vector<std::string>& tokens, int length, const std::string& sql,
                Tally& tally) {
  tally.Compare(sql);
  if (length == 0) return;
  for (const std::string& token : tokens) CompareAll(tokens, length - 1, sql + token, tally);
}

TEST_P(Exhaustive, EnginesAgree) {
  int length = 0;
  GetParam().Words() >> length;
  Tally tally;
  ASSERT_FALSE(GetParam().texts.empty());
  CompareAll(GetParam().texts, length, "", tally);
  EXPECT_TRUE(tally.AllSame());
}

INSTANTIATE_TEST_SUITE_P(Cases, Exhaustive, testing::ValuesIn(ReadCases("alphabets.txt")),
                         CaseName);

long FromEnvironment(const char* name, long otherwise) {
  const char* const value = std::getenv(name);
  return value == nullptr ? otherwise : std::strtol(value, nullptr, 10);
}

// TARN_ENGINES_CASES sets the number of statements. Another TARN_ENGINES_START draws others.
TEST(Random, EnginesAgree) {
  RandomStatements statements(static_cast<std::uint64_t>(FromEnvironment("TARN_ENGINES_START", 1)));
  Tally tally;
  for (long i = FromEnvironment("TARN_ENGINES_CASES", 100'000); i > 0; --i) {
    tally.Compare(statements.Next());
  }
  EXPECT_TRUE(tally.AllSame());
}

// The fuzzer's corpus, also for builds without the fuzzer.
TEST(FuzzCorpus, EnginesAgree) {
  Tally tally;
  for (const auto& entry : std::filesystem::directory_iterator(TARN_FUZZ_CORPUS)) {
    std::ifstream file(entry.path(), std::ios::binary);
    tally.Compare({std::istreambuf_iterator<char>(file), {}});
  }
  EXPECT_TRUE(tally.AllSame());
}

// Literals at the ends of double's range and of printing without an exponent, and random ones.
TEST(Decimals, EnginesAgree) {
  const auto repeat = [](std::size_t count, char digit) { return std::string(count, digit); };
  std::vector<std::string> literals{
      "00.00", "0.0e5", "1.7976931348623157e308", "1.7976931348623159e308",
      "4.9406564584124654e-324", "2.4e-324", "0.1e-400",
      // The sum of the exponent and the digits does not fit into a 64-bit integer.
      "1.0e9223372036854775807", "100.5E+9223372036854775806", "0.01e-9223372036854775807",
      "1.0e18446744073709551616", "0.1e-18446744073709551616", repeat(309, '9') + ".0",
      repeat(400, '0') + "1.5", "0." + repeat(400, '0') + "1", repeat(320, '1') + ".0e-300",
      repeat(700, '1') + ".0e-300", "0." + repeat(400, '0') + "1e+50"};
  for (int exponent = -330; exponent <= 310; ++exponent) {
    for (const char* mantissa : {"1.0", "0.99999999999999", "0.999999999999999", "1.00000000000001",
                                 "0.9999999999999999", "1.0000000000000002"}) {
      literals.push_back(mantissa + ("e" + std::to_string(exponent)));
    }
  }
  for (std::size_t digits = 1; digits <= 25; ++digits) {
    for (const char digit : {'1', '5', '9'}) {
      literals.push_back(repeat(digits, digit) + ".5");
      literals.push_back("0." + repeat(digits - 1, '0') + digit);
    }
  }
  RandomStatements random(1);
  for (int i = 0; i < 50'000; ++i) literals.push_back(random.Decimal());
  Tally tally;
  for (const std::string& literal : literals) {
    tally.Compare(literal);
    tally.Compare("values (1), (" + literal);
  }
  EXPECT_TRUE(tally.AllSame());
}

// More aliases than the patterns can take in time, against a map.
TEST(Aliases, AreNumberedByFirstAppearance) {
  std::mt19937_64 random(1);
  const auto below = [&random](std::size_t bound) { return random() % bound; };
  const auto digits = [&below](std::size_t count) {
    std::string text(count, '0');
    for (char& digit : text) digit = static_cast<char>('0' + below(10));
    return text;
  };
  for (int i = 0; i < 400; ++i) {
    // Numbers of aliases below and above the limits for comparing one by one and for std::sort;
    // common digits up to the ends of chunks and beyond; aliases that are the begin of another.
    const std::size_t count = std::array<std::size_t, 6>{1, 15, 16, 17, 90, 2000}[below(6)];
    const std::string common = digits(std::array<std::size_t, 4>{0, 7, 8, 25}[below(4)]);
    std::vector<std::string> aliases;
    while (aliases.size() < count) {
      aliases.push_back((below(3) == 0 ? "t" : "t" + common) + digits(1 + below(1 + below(20))));
    }
    // The second alias turns the stripping of a single one off.
    std::string sql = "t0 t1";
    std::string canonical = "____t1 ____t2";
    std::map<std::string, std::size_t> numbers{{"t0", 1}, {"t1", 2}};
    for (std::size_t n = below(3 * count); n != 0; --n) {
      const std::string& alias = aliases[below(count)];
      const std::size_t number = numbers.try_emplace(alias, numbers.size() + 1).first->second;
      // "/", ":" and "\xB7" are close to the digits.
      const std::string then = std::array{" ", " 12 ", ", xt1 ", " / ", " : ", " \xB7 "}[below(6)];
      sql.append(then).append(alias);
      canonical.append(then).append("____t").append(std::to_string(number));
    }
    ASSERT_EQ(NormalizeByScanner(sql), canonical);
  }
}

void NormalizeInRangeOrNot(const std::string& sql) {
  try {
    NormalizeByScanner(sql);
  } catch (const boost::bad_lexical_cast&) {
  }
}

// Expects at most 20 bytes of memory for each byte of the text.
void ExpectLittleMemory(const std::string& sql) {
  constexpr std::size_t kMostPerByte = 20;
  const PeakMemory peak;
  NormalizeInRangeOrNot(sql);
  EXPECT_LE(peak.Bytes(), kMostPerByte * sql.size());
}

// The least processor time of a few rounds, on which the machine's other work has little effect.
double LeastTime(const std::string& sql) {
  double least = std::numeric_limits<double>::infinity();
  for (int round = 0; round < 3; ++round) {
    const std::clock_t begin = std::clock();
    NormalizeInRangeOrNot(sql);
    least = std::min(least, static_cast<double>(std::clock() - begin));
  }
  return least;
}

// Expects the same text of both engines, little memory, and that 16 times the length takes no more
// than about 16 times the time. Quadratic work would take 256 times, so the limit can be generous.
// A noisy machine gets several tries. Most of the texts of `lengths` are short enough for the
// patterns.
template <typename Grower>
void ExpectCheapGrowth(Grower grow, std::initializer_list<std::size_t> lengths) {
  constexpr std::size_t kLength = 8 << 10;
  constexpr std::size_t kTimes = 16;
  constexpr double kMost = 4 * kTimes;
  Tally tally;
  for (const std::size_t length : lengths) tally.Compare(grow(length));
  EXPECT_TRUE(tally.AllSame());
  const std::string one = grow(kLength);
  const std::string many = grow(kTimes * kLength);
  ExpectLittleMemory(one);
  ExpectLittleMemory(many);
  double ratio = kMost + 1;
  for (int tries = 4; ratio > kMost && tries > 0; --tries) ratio = LeastTime(many) / LeastTime(one);
  EXPECT_LE(ratio, kMost);
}

class Growth : public testing::TestWithParam<GrowthFamily> {};

TEST_P(Growth, IsCheap) {
  ExpectCheapGrowth([](std::size_t length) { return Grow(GetParam(), length); },
                    {3, 40, 300, 1500});
}

INSTANTIATE_TEST_SUITE_P(Families, Growth, testing::ValuesIn(GrowthFamilies()),
                         [](const auto& instance) { return instance.param.name; });

// TARN_GROWTH_CASES sets the number of combinations, TARN_GROWTH_START the first one. To replay a
// failure, set the TARN_GROWTH_START that it names and TARN_GROWTH_CASES=1. The texts for the
// patterns outgrow one buffer after the other.
TEST(GrowthCombinations, AreCheap) {
  const long start = FromEnvironment("TARN_GROWTH_START", 1);
  const long end = start + FromEnvironment("TARN_GROWTH_CASES", 200);
  for (long number = start; number < end; ++number) {
    SCOPED_TRACE("TARN_GROWTH_START=" + std::to_string(number));
    const auto grow = [number](std::size_t length) {
      return GrowCombination(static_cast<std::uint64_t>(number), length);
    };
    ExpectCheapGrowth(grow, {950, 1050, 3000});
  }
}

// Alias numbers follow the global locale, that of the call.
TEST(AliasNumbers, AreGroupedAsTheGlobalLocaleGroups) {
  std::string sql;
  for (std::size_t i = 1; i <= 1002; ++i) AppendNumbered("t#, ", i, sql);
  for (const char* grouping : {"\3", "\1", "\2\1", "", "\x7F", "\xFF"}) {
    for (const char separator : {',', '\0'}) {
      const std::locale before = std::locale::global(
          std::locale(std::locale::classic(), new Punctuation(grouping, separator)));
      const Comparison comparison = CompareEngines(sql);
      std::locale::global(before);
      EXPECT_EQ(comparison.outcome, Outcome::kSame) << grouping << comparison.line;
    }
  }
}

std::string Normalized(const host::Plugin& plugin, std::string sql) {
  plugin.Product().NormalizeSQL(sql);
  return sql;
}

TEST(LoadedPlugin, TakesTheScannerUnderTheClassicLocale) {
  EXPECT_EQ(sqlnorm::ChosenEngine(), sqlnorm::Engine::kScanner);
  // The patterns give up on this, so the plug-in has not used them.
  const std::string hard = "\"select" + std::string(20'000, ' ') + "1";
  EXPECT_THROW(NormalizeByPatterns(hard), std::runtime_error);
  EXPECT_EQ(Normalized(host::Plugin(TARN_PLUGIN_PATH), hard), "\" SELECT 1");
}

TEST(LoadedPlugin, ThrowsForADecimalOutOfRangeAndLeavesTheStatement) {
  std::vector<std::string> statements{"x=1.0e999", "select 1.50 from t where x = 1.0E+309",
                                      "values (1), (1.0e999)"};
  // The literal is at the end of the removed rows, and ends at any position of a block.
  for (std::size_t digits = 309; digits < 309 + 64; ++digits) {
    statements.push_back("values (1), (" + std::string(digits, '9') + ".0");
  }
  const host::Plugin plugin(TARN_PLUGIN_PATH);
  for (const std::string& statement : statements) {
    std::string sql = statement;
    // Only the base class of Boost's exception is the same class here and in the library.
    EXPECT_THAT([&] { plugin.Product().NormalizeSQL(sql); },
                testing::ThrowsMessage<std::bad_cast>(testing::StrEq(
                    "bad lexical cast: source type value could not be interpreted as target")));
    EXPECT_EQ(sql, statement);
    // The failed call has left nothing.
    EXPECT_EQ(Normalized(plugin, "select t2.a, t1.b, 1.50"), "SELECT ____t1.a, ____t2.b, 1.5");
  }
}

}  // namespace
}  // namespace tarn::test

// The scanner against the pattern engine, the definition: every sequence of tokens up to some
// length, then random ones.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "sqlnorm/normalize_sql.h"
#include "sqlnorm/patterns/pattern_engine.h"
#include "sqlnorm/scanner/scanner_engine.h"
#include "support/allocations.h"
#include "support/compare_engines.h"
#include "support/growth_families.h"
#include "tarn_host/plugin.h"

namespace {

using namespace std::string_view_literals;
using tarn::test::CompareEngines;
using tarn::test::Outcome;

// Counts what was compared, and reports each difference in a line of its own.
class Tally {
 public:
  void Compare(const std::string& sql) {
    ++compared_;
    const tarn::test::Comparison comparison = CompareEngines(sql);
    if (comparison.outcome == Outcome::kPatternsGaveUp) ++gave_up_;
    if (comparison.outcome == Outcome::kDifferent && ++different_ <= kMostReported) {
      ADD_FAILURE() << comparison.line;
    }
  }

  // Says how much the comparison is worth.
  void Report() const {
    std::cout << compared_ << " statements, " << different_ << " different, " << gave_up_
              << " on which the patterns gave up\n";
    EXPECT_EQ(different_, 0);
  }

 private:
  static constexpr int kMostReported = 20;
  long compared_ = 0;
  long different_ = 0;
  long gave_up_ = 0;
};

struct Alphabet {
  const char* name;
  int length;  // of the longest sequence
  std::vector<std::string_view> tokens;
};

void PrintTo(const Alphabet& alphabet, std::ostream* out) { *out << alphabet.name; }

class Exhaustive : public testing::TestWithParam<Alphabet> {};

void CompareAll(const Alphabet& alphabet, int length, const std::string& sql, Tally& tally) {
  tally.Compare(sql);
  if (length == 0) return;
  for (const std::string_view token : alphabet.tokens) {
    CompareAll(alphabet, length - 1, sql + std::string(token), tally);
  }
}

TEST_P(Exhaustive, EnginesAgree) {
  Tally tally;
  CompareAll(GetParam(), GetParam().length, "", tally);
  tally.Report();
}

INSTANTIATE_TEST_SUITE_P(
    Alphabets, Exhaustive,
    testing::Values(
        Alphabet{"Statements",
                 3,
                 {"select ", "Insert", " into ", "DELETE ", " from", "update ", "where", "values",
                  "t1",      "t2",     " ",      "\t",      ".",     ",",       "(",     ")",
                  "=",       "<>",     "<",      "@p1",     "1.50",  "0x1f",    "9a",    "not ",
                  " in ",    " and ",  "as ",    "____t1",  "'",     "\"",      "\0"sv,  "\xE9"}},
        Alphabet{"Joints", 5, {"a", "t1", ".", ",", " ", "\t", "=", ">=", "("}},
        Alphabet{"Groups", 5, {"(", ")", "a", "=", "not", "in", "and", " ", "b.c"}},
        Alphabet{"Rows", 5, {"values", "(", ")", ",", " ", "@p1", "x", "@"}},
        Alphabet{"Literals", 5, {"1", "0", "x", "F", ".", "e", "+", " ", "_"}},
        Alphabet{"Aliases", 5, {" ", "t1", "____t1", "as", ".", "a", "t2", "\n"}},
        Alphabet{"Quotes", 6, {"\"", " ", "a", "\n", "(1.5"}},
        Alphabet{
            "Keywords", 4, {"insert", "INTO", "delete", "From", " ", "\n", "=", "1", "_", "into"}}),
    [](const auto& instance) { return instance.param.name; });

// Those that hold no blank.
constexpr std::string_view kPlainTokens =
    "select SELECT Insert into INTO delete from FROM update where values VALUES "
    "values(1,2),(3,4) set join on as AS and AND or not NOT in IN (a=b) (@p1) @p1 @P1 @ p1 a "
    "b_c x _ tab T1 t t1 t2 t3 t01 t1.a t2.b xt1 t1_x ____t1 ____t2 ____t10 0 1 42 10abc 1e5 "
    "1.5 1.50 0.1 2.5E3 7.0e-1 1.0e20 1.0e-400 1.2.3.4 1.5e 1. .5 0x1F 0XfFfFfFfF 0x123456789 "
    "0xg 0x ( ) ( ) , , . . .. ... = = < > <= >= <> != ! + - * / % ; ? : ' \" ` -- /* */ \xE9 "
    "\xC3\xA9 \x7F";

std::vector<std::string> Tokens() {
  std::vector<std::string> tokens{"NOT (a IN (1,2))",
                                  "not(t1.b in(3))",
                                  "(t1.x >= 1.5 and y<2)",
                                  "(@p0, @p1)",
                                  "'x y'",
                                  std::string(1, '\0'),
                                  " ",
                                  "  ",
                                  "\t",
                                  "\n",
                                  "\r\n",
                                  "\v\f",
                                  " . ",
                                  " , ",
                                  " as t1",
                                  "insert into",
                                  "delete from"};
  std::istringstream plain{std::string(kPlainTokens)};
  tokens.insert(tokens.end(), std::istream_iterator<std::string>(plain), {});
  return tokens;
}

std::string RandomStatement(std::mt19937_64& random) {
  const auto below = [&random](std::size_t bound) { return random() % bound; };
  static const std::vector<std::string> tokens = Tokens();
  std::string sql;
  for (std::size_t count = 1 + below(30); count != 0; --count) {
    sql += tokens[below(tokens.size())];
    if (below(3) != 0) sql += ' ';
    if (below(50) == 0) sql += static_cast<char>(below(256));
  }
  return below(40) == 0 ? '"' + sql + '"' : sql;
}

// TARN_ENGINES_CASES asks for another number of statements; other statements with
// TARN_ENGINES_START.
long FromEnvironment(const char* name, long otherwise) {
  const char* const value = std::getenv(name);
  return value == nullptr ? otherwise : std::strtol(value, nullptr, 10);
}

TEST(Random, EnginesAgree) {
  std::mt19937_64 random(static_cast<std::uint64_t>(FromEnvironment("TARN_ENGINES_START", 1)));
  Tally tally;
  for (long i = FromEnvironment("TARN_ENGINES_CASES", 100'000); i > 0; --i) {
    tally.Compare(RandomStatement(random));
  }
  tally.Report();
}

class Growth : public testing::TestWithParam<tarn::test::GrowthFamily> {};

// Short enough for the patterns in the main.
TEST_P(Growth, EnginesAgree) {
  Tally tally;
  for (const std::size_t length : {3U, 40U, 300U, 1500U}) tally.Compare(Grow(GetParam(), length));
  tally.Report();
}

// Anything worse than linear would not end here within the test's time.
TEST_P(Growth, ScannerTakesMegabytes) {
  constexpr std::size_t kLength = 4 << 20;
  EXPECT_NO_THROW(tarn::sqlnorm::NormalizeByScanner(Grow(GetParam(), kLength)));
}

// How many blocks the scanner asks for: one less than the first that is never asked for.
long ScannerAllocations(const std::string& sql) {
  for (long n = 1;; ++n) {
    const tarn::test::FailNthAllocation failure(n);
    try {
      tarn::sqlnorm::NormalizeByScanner(sql);
    } catch (const std::bad_alloc&) {
    }
    if (!tarn::test::FailNthAllocation::Happened()) return n - 1;
  }
}

TEST_P(Growth, ScannerAllocatesNoMoreForMoreTokens) {
  if (GetParam().name == "DistinctAliases"sv) GTEST_SKIP() << "each alias may cost a block";
  constexpr std::size_t kLength = 10'000;
  EXPECT_EQ(ScannerAllocations(Grow(GetParam(), kLength)),
            ScannerAllocations(Grow(GetParam(), 16 * kLength)));
}

INSTANTIATE_TEST_SUITE_P(Families, Growth, testing::ValuesIn(tarn::test::kGrowthFamilies),
                         [](const auto& instance) { return instance.param.name; });

TEST(Engine, IsTheScannerUnderTheClassicLocale) {
  EXPECT_EQ(tarn::sqlnorm::ChosenEngine(), tarn::sqlnorm::Engine::kScanner);

  // The patterns give up here, so the plug-in can't have asked them.
  const std::string blanks(20'000, ' ');
  const std::string hard = "\"select" + blanks + "1";
  EXPECT_THROW(tarn::sqlnorm::NormalizeByPatterns(hard), std::runtime_error);
  const tarn::host::Plugin plugin(TARN_PLUGIN_PATH);
  std::string sql = hard;
  plugin.Product().NormalizeSQL(sql);
  EXPECT_EQ(sql, "\" SELECT 1");
}

TEST(Scanner, Takes64Megabytes) {
  constexpr std::size_t kLength = 64 << 20;
  std::string sql = "select t1.a from tab t1 where t1.b in (0";
  std::string expected = "SELECT a FROM tab ____t1 WHERE b in ( 0";
  while (sql.size() < kLength) {
    sql += ",1.50";
    expected += ", 1.5";
  }
  EXPECT_EQ(tarn::sqlnorm::NormalizeByScanner(sql + ")"), expected + " )");
}

}  // namespace

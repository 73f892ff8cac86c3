// Tests the normalizer: its tables of texts; the scanner against the patterns, which define the
// text, on tables, on all short sequences of tokens, on random and on hostile statements; and how
// its work grows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <boost/lexical_cast/bad_lexical_cast.hpp>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <locale>
#include <new>
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

using namespace std::string_view_literals;
using sqlnorm::NormalizeByPatterns;
using sqlnorm::NormalizeByScanner;

// Compares the engines, and reports each difference in a line of its own.
class Tally {
 public:
  void Compare(const std::string& sql) {
    ++compared_;
    const Comparison comparison = CompareEngines(sql);
    if (comparison.outcome == Outcome::kPatternsGaveUp) ++gave_up_;
    if (comparison.outcome == Outcome::kDifferent && ++different_ <= kMostReported) {
      ADD_FAILURE() << comparison.line;
    }
  }

  // Prints the counts, so that a reader sees how much was compared, and returns the number of
  // statements.
  long Report() const {
    std::cout << compared_ << " statements, " << different_ << " different, " << gave_up_
              << " on which the patterns gave up\n";
    EXPECT_EQ(different_, 0);
    return compared_;
  }

 private:
  static constexpr int kMostReported = 20;
  long compared_ = 0;
  long different_ = 0;
  long gave_up_ = 0;
};

class CanonicalText : public testing::TestWithParam<CaseRow> {};

TEST_P(CanonicalText, OfBothEngines) {
  EXPECT_EQ(NormalizeByPatterns(GetParam().texts.at(0)), GetParam().texts.at(1));
  EXPECT_EQ(NormalizeByScanner(GetParam().texts[0]), GetParam().texts[1]);
}

INSTANTIATE_TEST_SUITE_P(Cases, CanonicalText, testing::ValuesIn(ReadCases("canonical_text.txt")),
                         [](const auto& instance) { return instance.param.label; });

// The rows of one section of cases/pattern_steps.txt, whose heading is "ID FIRST LAST".
using Section = std::vector<CaseRow>;

std::vector<Section> StepSections() {
  std::vector<Section> sections;
  for (CaseRow& row : ReadCases("pattern_steps.txt")) {
    if (sections.empty() || sections.back().front().section != row.section) sections.emplace_back();
    sections.back().push_back(std::move(row));
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
    EXPECT_EQ(sqlnorm::RunSteps(row.texts.at(0), first, last), row.texts.back()) << row;
    // Also compares the engines on the text, alone and after other parts that are rewritten.
    for (const std::string& text : row.texts) {
      for (const char* frame : {"", "select t7.a, ", "values (1),"}) tally.Compare(frame + text);
    }
  }
  tally.Report();
}

INSTANTIATE_TEST_SUITE_P(Cases, Steps, testing::ValuesIn(StepSections()), [](const auto& instance) {
  return instance.param.front().section.substr(0, instance.param.front().section.find(' '));
});

class Exhaustive : public testing::TestWithParam<CaseRow> {};

void CompareAll(const std::vector<std::string>& tokens, int length, const std::string& sql,
                Tally& tally) {
  tally.Compare(sql);
  if (length == 0) return;
  for (const std::string& token : tokens) CompareAll(tokens, length - 1, sql + token, tally);
}

TEST_P(Exhaustive, EnginesAgree) {
  const std::string& label = GetParam().label;
  Tally tally;
  CompareAll(GetParam().texts, std::stoi(label.substr(label.find(' '))), "", tally);
  tally.Report();
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
  tally.Report();
}

// The fuzzer's corpus, also for builds without the fuzzer.
TEST(FuzzCorpus, EnginesAgree) {
  Tally tally;
  for (const auto& entry : std::filesystem::directory_iterator(TARN_FUZZ_CORPUS)) {
    std::ifstream file(entry.path(), std::ios::binary);
    tally.Compare({std::istreambuf_iterator<char>(file), {}});
  }
  EXPECT_GT(tally.Report(), 100);
}

// Texts that outgrow one buffer after the other during writing.
TEST(Buffers, GrowWithTheText) {
  struct Row {
    const char* unit;
    std::size_t count;
    const char* then;
    std::size_t then_count;
  };
  for (const auto& [unit, count, then, then_count] :
       {Row{"t#,", 3000, "(", 20'000}, Row{"t1 ", 400, "", 0}, Row{"t# ", 60'000, "", 0},
        Row{"0.1,", 1000, "(", 3000}, Row{"(", 900, "0.1,", 900}, Row{"1.0e5 ", 600, "t1", 600},
        Row{"t1 ", 400, "(", 1000}}) {
    std::string sql;
    for (std::size_t i = 1; i <= count; ++i) AppendNumbered(unit, i, sql);
    for (std::size_t i = 0; i < then_count; ++i) sql += then;
    // The patterns would take minutes on that many aliases.
    constexpr std::size_t kManyForPatterns = 10'000;
    if (count > kManyForPatterns) {
      EXPECT_THAT(NormalizeByScanner(sql), testing::EndsWith(" ____t" + std::to_string(count)));
    } else {
      EXPECT_EQ(CompareEngines(sql).outcome, Outcome::kSame) << unit;
    }
  }
  // The literal crosses the very end of a buffer.
  for (std::size_t length = 900; length < 1100; ++length) {
    const std::string sql = std::string(length, '(') + "0.1";
    EXPECT_EQ(CompareEngines(sql).outcome, Outcome::kSame) << length;
  }
}

class Growth : public testing::TestWithParam<GrowthFamily> {};

// Most of these are short enough for the patterns.
TEST_P(Growth, EnginesAgree) {
  Tally tally;
  for (const std::size_t length : {3U, 40U, 300U, 1500U}) tally.Compare(Grow(GetParam(), length));
  tally.Report();
}

// The number of blocks that the scanner allocates: one less than the first failure that never
// happens.
long ScannerAllocations(const std::string& sql) {
  for (long n = 1;; ++n) {
    const FailNthAllocation failure(n);
    try {
      NormalizeByScanner(sql);
    } catch (const std::bad_alloc&) {
    }
    if (!FailNthAllocation::Happened()) return n - 1;
  }
}

TEST_P(Growth, ScannerAllocatesNoMoreForMoreTokens) {
  constexpr std::size_t kLength = 10'000;
  // The list of groups for sorting aliases may grow a few times.
  constexpr long kListGrows = 16;
  EXPECT_LE(ScannerAllocations(Grow(GetParam(), 16 * kLength)),
            ScannerAllocations(Grow(GetParam(), kLength)) + kListGrows);
}

// Expects at most 20 bytes of memory for each byte of the text. TARN_GROWTH_LENGTH sets the length.
void ExpectLittleMemory(const std::string& sql) {
  constexpr std::size_t kMostPerByte = 20;
  const PeakMemory peak;
  try {
    NormalizeByScanner(sql);
  } catch (const boost::bad_lexical_cast&) {
  }
  EXPECT_LE(peak.Bytes(), kMostPerByte * sql.size());
}

TEST_P(Growth, TakesLittleMemory) {
  for (const long length : {8L << 10, FromEnvironment("TARN_GROWTH_LENGTH", 64 << 10)}) {
    ExpectLittleMemory(Grow(GetParam(), static_cast<std::size_t>(length)));
  }
}

// The thread's processor time, on which the machine's other work has little effect.
double ProcessorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double LeastSeconds(const std::string& sql) {
  constexpr int kRounds = 3;
  double least = std::numeric_limits<double>::infinity();
  for (int i = 0; i < kRounds; ++i) {
    const double begin = ProcessorSeconds();
    try {
      NormalizeByScanner(sql);
    } catch (const boost::bad_lexical_cast&) {
    }
    least = std::min(least, ProcessorSeconds() - begin);
  }
  return least;
}

// Whether 16 times the length takes no more than about 16 times the time. Quadratic work would take
// 256 times, so the limit can be generous. A noisy machine gets several tries.
template <typename Grower>
testing::AssertionResult GrowsLinearly(Grower grow) {
  constexpr std::size_t kLength = 8 << 10;
  constexpr std::size_t kTimes = 16;
  constexpr double kMost = 4 * kTimes;
  constexpr int kTries = 4;
  const std::string one = grow(kLength);
  const std::string many = grow(kTimes * kLength);
  double ratio = 0;
  for (int i = 0; i < kTries; ++i) {
    ratio = LeastSeconds(many) / LeastSeconds(one);
    if (ratio <= kMost) return testing::AssertionSuccess();
  }
  return testing::AssertionFailure()
         << many.size() << " bytes take " << ratio << " times the time of " << one.size();
}

TEST_P(Growth, IsLinear) {
  EXPECT_TRUE(GrowsLinearly([](std::size_t length) { return Grow(GetParam(), length); }));
}

INSTANTIATE_TEST_SUITE_P(Families, Growth, testing::ValuesIn(GrowthFamilies()),
                         [](const auto& instance) { return instance.param.name; });

// TARN_GROWTH_CASES sets the number of combinations, TARN_GROWTH_START the first one. To replay a
// failure, set the TARN_GROWTH_START that it names and TARN_GROWTH_CASES=1.
TEST(GrowthCombinations, AreLinearAndTakeLittleMemory) {
  const long start = FromEnvironment("TARN_GROWTH_START", 1);
  const long end = start + FromEnvironment("TARN_GROWTH_CASES", 200);
  for (long number = start; number < end; ++number) {
    const auto grow = [number](std::size_t length) {
      return GrowCombination(static_cast<std::uint64_t>(number), length);
    };
    EXPECT_TRUE(GrowsLinearly(grow)) << "TARN_GROWTH_START=" << number;
    ExpectLittleMemory(grow(64 << 10));
  }
}

// Only alias numbers follow the global locale, that of the call.
TEST(AliasNumbers, AreGroupedAsTheGlobalLocaleGroups) {
  struct Row {
    const char* grouping;
    const char* eleventh;
    const char* last;
    char separator = ',';
  };
  constexpr std::size_t kAliases = 1002;
  std::string sql;
  for (std::size_t i = 1; i <= kAliases; ++i) AppendNumbered("t#, ", i, sql);
  const std::locale before;
  for (const auto& [grouping, eleventh, last, separator] :
       {Row{"\3", "____t11,", "002,", '\0'}, Row{"\3", "____t11,", "____t1,002,"},
        Row{"\1", "____t1,1,", "____t1,0,0,2,"}, Row{"\2\1", "____t11,", "____t1,0,02,"},
        Row{"", "____t11,", "____t1002,"}, Row{"\x7F", "____t11,", "____t1002,"},
        Row{"\xFF", "____t11,", "____t1002,"}}) {
    std::locale::global(std::locale(std::locale::classic(), new Punctuation(grouping, separator)));
    const Comparison comparison = CompareEngines(sql);
    const std::string text = NormalizeByScanner(sql);
    std::locale::global(before);
    EXPECT_EQ(comparison.outcome, Outcome::kSame);
    EXPECT_THAT(text, testing::AllOf(testing::HasSubstr(eleventh), testing::EndsWith(last)));
  }
}

class LoadedPlugin : public testing::Test {
 protected:
  std::string Normalize(std::string sql) {
    plugin_.Product().NormalizeSQL(sql);
    return sql;
  }

  const host::Plugin plugin_{TARN_PLUGIN_PATH};
};

TEST_F(LoadedPlugin, TakesTheScannerUnderTheClassicLocale) {
  EXPECT_EQ(sqlnorm::ChosenEngine(), sqlnorm::Engine::kScanner);
  // The patterns give up on this, so the plug-in has not used them.
  const std::string hard = "\"select" + std::string(20'000, ' ') + "1";
  EXPECT_THROW(NormalizeByPatterns(hard), std::runtime_error);
  EXPECT_EQ(Normalize(hard), "\" SELECT 1");
}

TEST_F(LoadedPlugin, ThrowsForADecimalOutOfRangeAndLeavesTheStatement) {
  std::vector<std::string> statements{"x=1.0e999", "select 1.50 from t where x = 1.0E+309",
                                      "values (1), (1.0e999)"};
  // The literal is at the end of the removed rows, and ends at any position of a block.
  for (std::size_t digits = 309; digits < 309 + 64; ++digits) {
    statements.push_back("values (1), (" + std::string(digits, '9') + ".0");
  }
  for (const std::string& statement : statements) {
    std::string sql = statement;
    // Only the base class of Boost's exception is the same class here and in the library.
    EXPECT_THAT([&] { plugin_.Product().NormalizeSQL(sql); },
                testing::ThrowsMessage<std::bad_cast>(testing::StrEq(
                    "bad lexical cast: source type value could not be interpreted as target")));
    EXPECT_EQ(sql, statement);
    // The failed call has left nothing.
    EXPECT_EQ(Normalize("select t2.a, t1.b, 1.50"), "SELECT ____t1.a, ____t2.b, 1.5");
  }
}

}  // namespace
}  // namespace tarn::test

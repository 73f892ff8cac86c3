// How tarn_host folds statements, and what it counts and prints with.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "shapes/keyed_hash.h"
#include "shapes/statement_folder.h"
#include "shapes/time_statistics.h"
#include "sql/errors.h"
#include "sqlnorm/normalize_sql.h"
#include "support/case_file.h"
#include "support/run_program.h"
#include "support/surroundings.h"
#include "tarn_host/output.h"

namespace {

// The most that `write` takes at once, as a pipe might; 0 for no limit.
std::size_t most_written = 0;

}  // namespace

extern "C" ssize_t write(int fd, const void* bytes, std::size_t size) {
  if (most_written != 0) size = std::min(size, most_written);
  return syscall(SYS_write, fd, bytes, size);
}

namespace tarn::test {
namespace {

using namespace tarn::host;
using ::testing::HasSubstr;

std::string ShapeOf(StatementFolder& folder, const std::string& statement) {
  std::string shape = sqlnorm::NormalizeSQLText(folder.Fold(statement));
  StatementFolder::ShowPlaces(shape);
  return shape;
}

class Folding : public testing::TestWithParam<CaseRow> {};

TEST_P(Folding, UnitesWhatAPersonWould) {
  const std::string& label = GetParam().label;
  StatementFolder folder(Dialects().at(label.substr(label.find(' ') + 1)));
  std::vector<std::string> statements = GetParam().texts;
  std::set<std::string> shapes;
  if (GetParam().section == "Apart") {
    for (const std::string& statement : statements) shapes.insert(ShapeOf(folder, statement));
    EXPECT_EQ(shapes.size(), statements.size()) << testing::PrintToString(shapes);
    return;
  }
  const std::string shape = statements.back();
  if (statements.size() > 1) statements.pop_back();
  for (const std::string& statement : statements) {
    EXPECT_EQ(ShapeOf(folder, statement), shape) << statement;
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, Folding, testing::ValuesIn(ReadCases("folding.txt")), CaseName);

TEST(TimeStatistics, NearThePercentileAndExactOtherwise) {
  std::mt19937 random(7);
  std::lognormal_distribution<double> durations(-3, 3);
  TimeStatistics halves[2];
  std::vector<double> all;
  for (std::size_t i = 0; i < 5000; ++i) {
    all.push_back(durations(random));
    halves[i % 2].Add(all.back());
  }
  halves[0].Add(halves[1]);
  std::sort(all.begin(), all.end());
  const double exact = all[all.size() * 95 / 100 - 1];
  EXPECT_GE(halves[0].Percentile95(), exact * 0.999);
  EXPECT_LE(halves[0].Percentile95(), exact * TimeStatistics::kClassRatio);
  EXPECT_EQ(halves[0].Max(), all.back());
  EXPECT_EQ(halves[0].Count(), all.size());
  EXPECT_NEAR(halves[0].Mean(), halves[0].Total() / 5000, 1e-9);
  TimeStatistics none;
  EXPECT_EQ(none.Mean() + none.Percentile95(), 0);
  none.Add(0);
  none.Add(1e300);
  EXPECT_TRUE(std::isfinite(none.Total()));
}

TEST(KeyedHash, HasAKeyThatNobodyKnows) {
  const KeyedHash hash;
  EXPECT_EQ(hash("a"), hash("a"));
  EXPECT_NE(hash("b"), hash("a"));
  EXPECT_NE(KeyedHash()("a"), hash("a"));
}

TEST(Output, WritesWhatIsLeftOfAPartialWrite) {
  const OwnedFd file = ScratchFile();
  const std::string text(100'000, 'x');
  most_written = 7;
  Output output(file.Get(), "scratch");
  output.Write(text + "end");
  output.Flush();
  most_written = 0;
  EXPECT_EQ(Content(file.Get()), text + "end");
}

TEST(Output, FitsLinesByCharacters) {
  EXPECT_EQ(Fitted("abcdef", 6), "abcdef");
  EXPECT_EQ(Fitted("abcdefg", 6), "abc...");
  EXPECT_EQ(Fitted("\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", 4), "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4");
  EXPECT_EQ(Fitted("\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", 4), "\xC3\xA4...");
  EXPECT_EQ(Fitted("abc", 2), "..");
  EXPECT_EQ(Fitted("abc", 0), "abc");
}

TEST(OneLine, ShowsControlCharactersOfBothRanges) {
  EXPECT_EQ(OneLine("a\n\t\r\x1B\x7F"), "a\\n\\t\\r\\x1B\\x7F");
  EXPECT_EQ(OneLine("\xC2\x80\xC2\x9F\xC2\xA0\xC3\x80"), "\\xC2\\x80\\xC2\\x9F\xC2\xA0\xC3\x80");
  EXPECT_EQ(OneLine("\x9B\xC2"), "\x9B\xC2");
}

}  // namespace
}  // namespace tarn::test

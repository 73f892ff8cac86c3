// The pattern engine's steps alone: a text as it enters a step (or a run of steps) and as it
// leaves.
#include <gtest/gtest.h>

#include <boost/lexical_cast.hpp>
#include <sstream>
#include <stdexcept>
#include <string>

#include "sqlnorm/patterns/pattern_engine.h"
#include "support/case_file.h"

namespace tarn::sqlnorm {
namespace {

TEST(PatternSteps, Rewrite) {
  for (const test::CaseRow& row : test::ReadCases("pattern_steps.txt")) {
    // "ID FIRST LAST".
    std::istringstream heading(row.section);
    std::string id;
    int first = 0;
    int last = 0;
    ASSERT_TRUE(heading >> id >> first >> last);
    EXPECT_EQ(RunSteps(row.texts.at(0), first, last), row.texts.back())
        << row.section << ": " << row.texts[0];
  }
}

// Alone, the step can't know how many aliases there were: it runs on what the alias step counted.
TEST(SingleAliasStripping, IsSkippedWithoutExactlyOneAlias) {
  constexpr int kStripping = 21;
  EXPECT_EQ(RunSteps(" ____t1.a ", kStripping, kStripping), " ____t1.a ");
  EXPECT_EQ(RunSteps(" ____t1.a t4", kStripping - 1, kStripping), " a ____t1");
  EXPECT_EQ(RunSteps(" t4.a t5", kStripping - 1, kStripping), " ____t1.a ____t2");
}

TEST(PatternEngine, ThrowsWhatTheLibrariesThrow) {
  EXPECT_THROW(NormalizeByPatterns("x=1.0e999"), boost::bad_lexical_cast);
  // A group too long for the matcher's backtracking memory.
  std::string group = "(a=b";
  constexpr int kComparisons = 200'000;
  for (int i = 0; i < kComparisons; ++i) group += " and a=b";
  EXPECT_THROW(NormalizeByPatterns(group), std::runtime_error);
}

}  // namespace
}  // namespace tarn::sqlnorm

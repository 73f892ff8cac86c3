// The pattern road's steps alone: a text as it enters a step (or a run of steps) and as it leaves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/lexical_cast.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "sqlnorm/pattern_road.h"
#include "support/case_file.h"

namespace tarn::sqlnorm {
namespace {

// The rows of one section, whose heading is "ID FIRST LAST".
using Section = std::vector<test::CaseRow>;

std::vector<Section> Sections() {
  std::vector<Section> sections;
  for (const test::CaseRow& row : test::ReadCases("pattern_steps.txt")) {
    if (sections.empty() || sections.back()[0].section != row.section) sections.emplace_back();
    sections.back().push_back(row);
  }
  return sections;
}

class PatternSteps : public testing::TestWithParam<Section> {};

TEST_P(PatternSteps, Rewrite) {
  for (const test::CaseRow& row : GetParam()) {
    std::istringstream heading(row.section.substr(row.section.find(' ')));
    int first = 0;
    int last = 0;
    ASSERT_TRUE(heading >> first >> last);
    EXPECT_EQ(RunSteps(row.texts.at(0), first, last), row.texts.back()) << row.texts[0];
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, PatternSteps, testing::ValuesIn(Sections()),
                         [](const auto& instance) {
                           const std::string& heading = instance.param[0].section;
                           return heading.substr(0, heading.find(' '));
                         });

// Alone, the step can't know how many aliases there were: it runs on what the alias step counted.
TEST(SingleAliasStripping, IsSkippedWithoutExactlyOneAlias) {
  constexpr int kStripping = 21;
  EXPECT_EQ(RunSteps(" ____t1.a ", kStripping, kStripping), " ____t1.a ");
  EXPECT_EQ(RunSteps(" ____t1.a t4", kStripping - 1, kStripping), " a ____t1");
  EXPECT_EQ(RunSteps(" t4.a t5", kStripping - 1, kStripping), " ____t1.a ____t2");
}

class Recorder : public StepObserver {
 public:
  void AfterStep(int step, const char* name, const std::string& text) override {
    steps_.push_back(step);
    names_.emplace_back(name);
    last_text_ = text;
  }

  std::vector<int> steps_;
  std::vector<std::string> names_;
  std::string last_text_;
};

TEST(StepObserver, SeesEveryStepInOrder) {
  Recorder recorder;
  const std::string canonical = NormalizeByPatterns("select 1.50", &recorder);
  ASSERT_EQ(recorder.steps_.size(), static_cast<std::size_t>(kStepCount));
  for (int step = 1; step <= kStepCount; ++step) {
    EXPECT_EQ(recorder.steps_[static_cast<std::size_t>(step - 1)], step);
  }
  EXPECT_THAT(recorder.names_, testing::Each(testing::Not(testing::IsEmpty())));
  EXPECT_EQ(canonical, "SELECT 1.5");
  EXPECT_EQ(recorder.last_text_, canonical);
}

TEST(PatternRoad, ThrowsWhatTheLibrariesThrow) {
  EXPECT_THROW(NormalizeByPatterns("x=1.0e999"), boost::bad_lexical_cast);
  // A group too long for the matcher's backtracking memory.
  std::string group = "(a=b";
  constexpr int kComparisons = 200'000;
  for (int i = 0; i < kComparisons; ++i) group += " and a=b";
  EXPECT_THROW(NormalizeByPatterns(group), std::runtime_error);
}

}  // namespace
}  // namespace tarn::sqlnorm

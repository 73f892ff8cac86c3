// What the fuzzer found worth keeping, without the fuzzer: also for builds that it can't be part
// of.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/compare_engines.h"

namespace tarn::test {
namespace {

TEST(FuzzCorpus, EnginesAgree) {
  int compared = 0;
  for (const auto& entry : std::filesystem::directory_iterator(TARN_FUZZ_CORPUS)) {
    std::ifstream file(entry.path(), std::ios::binary);
    const Comparison comparison = CompareEngines({std::istreambuf_iterator<char>(file), {}});
    EXPECT_NE(comparison.outcome, Outcome::kDifferent) << comparison.line;
    ++compared;
  }
  EXPECT_GT(compared, 100);
}

}  // namespace
}  // namespace tarn::test

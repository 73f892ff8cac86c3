// Tests which statements have one shape.
#include "shapes/shape_rules.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "sql/text.h"
#include "support/allocations.h"
#include "support/case_file.h"
#include "support/drawn_statements.h"
#include "support/random_statements.h"

namespace {

// The steps of the lexer and of the rules.
std::uint64_t steps = 0;

}  // namespace

// The compiler calls it at the beginning of each basic block.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" void __sanitizer_cov_trace_pc() { ++steps; }

namespace tarn::test {
namespace {

using namespace tarn::host;

std::string ShapeOf(const std::string& statement, Dialect dialect, bool fold_digits = false) {
  return ShapeMaker({.dialect = dialect, .fold_digits = fold_digits}).MakeShape(statement);
}

class Shapes : public testing::TestWithParam<CaseRow> {};

TEST_P(Shapes, AreOneOrDifferent) {
  const std::string& label = GetParam().label;
  const Dialect dialect = Dialects().at(label.substr(label.find(' ') + 1));
  const std::vector<std::string>& statements = GetParam().texts;
  if (GetParam().section == "Meet") {
    for (const std::string& statement : statements) {
      if (&statement == &statements.back() && statements.size() > 1) break;
      EXPECT_EQ(ShapeOf(statement, dialect), statements.back()) << statement;
    }
    return;
  }
  std::map<std::string, std::string> known;
  for (const std::string& statement : statements) {
    const auto [other, fresh] = known.emplace(ShapeOf(statement, dialect), statement);
    EXPECT_TRUE(fresh) << other->second << "\n" << statement << "\n" << other->first;
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, Shapes, testing::ValuesIn(ReadCases("shape_rules.txt")), CaseName);

TEST(ShapeRules, FoldDigitsOfNamesOnRequest) {
  const auto folded = [](const std::string& sql) { return ShapeOf(sql, Dialect::kMysql, true); };
  EXPECT_EQ(folded("select a_1b from orders_2024_11, `Log 7`.x__3_ where @v2 = 5"),
            "SELECT a_?b FROM orders_?, `Log ?`.x__?_ WHERE @v? = ?");
  EXPECT_EQ(folded("savepoint s1; select 2fa"), "savepoint ?; SELECT ?fa");
}

TEST(ShapeRules, FoldListsAtAnyDepth) {
  const std::string open(20'000, '(');
  const std::string close(20'000, ')');
  EXPECT_EQ(
      ShapeOf("(1, 2), " + open + "a, ARRAY[2, 3], (4, 5)" + close + ", f(6, 7)", Dialect::kMysql),
      "(?, ...), " + open + "a, array[?, ...], (?, ...)" + close + ", f(?, ...)");
}

class RandomShapes : public testing::TestWithParam<Dialect> {
 protected:
  static constexpr std::uint64_t kStatements = 3000;
};

// Whether `word` occurs in the shape as a whole word.
bool HasWord(const std::string& shape, const std::string& word) {
  for (std::size_t at = shape.find(word); at != std::string::npos; at = shape.find(word, at + 1)) {
    const std::size_t end = at + word.size();
    if ((at == 0 || !IsWord(shape[at - 1])) && (end == shape.size() || !IsWord(shape[end]))) {
      return true;
    }
  }
  return false;
}

TEST_P(RandomShapes, DependOnAllButValues) {
  ShapeMaker used({.dialect = GetParam()});
  for (std::uint64_t number = 0; number < kStatements; ++number) {
    DrawnStatement statement(GetParam(), number);
    const std::string first = statement.Write();
    const std::string shape = ShapeOf(first, GetParam());
    for (int i = 0; i < 3; ++i) {
      const std::string other = statement.Write();
      ASSERT_EQ(used.MakeShape(other), shape) << "statement " << number << "\n"
                                              << first << "\n"
                                              << other;
    }
    std::string lower = shape;
    std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
    for (const std::string& word : statement.Words()) {
      ASSERT_TRUE(HasWord(lower, word)) << word << "\n" << first << "\n" << shape;
    }
    statement.ChangeOne();
    ASSERT_NE(used.MakeShape(statement.Write()), shape) << "statement " << number << "\n" << first;
  }
}

TEST_P(RandomShapes, DependOnNoStatementBefore) {
  RandomStatements random(static_cast<std::uint64_t>(GetParam()) + 1);
  ShapeMaker used({.dialect = GetParam()});
  for (std::uint64_t number = 0; number < kStatements; ++number) {
    const std::string sql = random.Next();
    const std::string shape = ShapeOf(sql, GetParam());
    ASSERT_EQ(used.MakeShape(sql), shape) << sql;
    // A sign takes at most two bytes, with its blank. The bytes that a folded list adds are fewer
    // than those of the values that it replaces.
    ASSERT_LE(shape.size(), 3 * sql.size()) << sql;
  }
}

// Each token alone and all of them in random order, as long statements. None may cost more than so
// many steps and bytes of memory a byte.
TEST_P(RandomShapes, CostLittleAByte) {
  constexpr std::size_t kSize = 20'000;
  constexpr std::uint64_t kMostSteps = 200;
  constexpr std::size_t kMostMemory = 20;
  constexpr std::size_t kConstantMemory = 2000;
  std::vector<std::string> pieces;
  for (const CaseRow& row : ReadCases("tokens.txt")) {
    pieces.insert(pieces.end(), row.texts.begin(), row.texts.end());
  }
  std::mt19937_64 random(1);
  for (std::size_t family = 0; family < pieces.size() + 10; ++family) {
    std::string sql;
    while (sql.size() < kSize) {
      sql += pieces[family < pieces.size() ? family : random() % pieces.size()];
    }
    const PeakMemory peak;
    const std::uint64_t before = steps;
    ShapeOf(sql, GetParam());
    EXPECT_LE(steps - before, kMostSteps * sql.size()) << sql.substr(0, 60);
    EXPECT_LE(peak.Bytes(), kMostMemory * sql.size() + kConstantMemory) << sql.substr(0, 60);
  }
}

std::string NameOf(const testing::TestParamInfo<Dialect>& info) { return RulesOf(info.param).name; }

INSTANTIATE_TEST_SUITE_P(Dialects, RandomShapes,
                         testing::Values(Dialect::kMysql, Dialect::kAnsi, Dialect::kPostgres),
                         NameOf);

}  // namespace
}  // namespace tarn::test

// Tests which statements have one shape, and where tokens, quotes and comments begin and end.
#include "shapes/shape_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "logs/formats.h"
#include "sql/lexer.h"
#include "sql/text.h"
#include "support/allocations.h"
#include "support/case_file.h"
#include "support/drawn_statements.h"
#include "support/random_statements.h"
#include "support/steps.h"

namespace tarn::test {
namespace {

using namespace tarn::host;
using ::testing::HasSubstr;

std::string ShapeOf(const std::string& statement, Dialect dialect, bool fold_digits = false) {
  return ShapeMaker({.dialect = dialect, .fold_digits = fold_digits}).MakeShape(statement);
}

class Shapes : public testing::TestWithParam<CaseRow> {};

TEST_P(Shapes, AreOneOrDifferent) {
  const auto& [section, label, texts, where, lines] = GetParam();
  const Dialect dialect = Dialects().at(label.substr(label.find(' ') + 1));
  ASSERT_GT(texts.size(), 1) << lines;
  std::map<std::string, std::string> known;
  for (const std::string& statement : texts) {
    const std::string shape = ShapeOf(statement, dialect, section == "Folded");
    if (section == "Apart") {
      const auto [other, fresh] = known.emplace(shape, statement);
      EXPECT_TRUE(fresh) << other->second << "\n" << statement << "\n" << shape;
    } else if (&statement != &texts.back()) {
      EXPECT_EQ(shape, texts.back()) << statement;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, Shapes, testing::ValuesIn(ReadCases("shape_rules.txt")), CaseName);

class Random : public testing::TestWithParam<Dialect> {
 protected:
  static constexpr std::uint64_t kStatements = 2000;
  const Dialect dialect_ = GetParam();
  RandomStatements random_{static_cast<std::uint64_t>(dialect_)};
};

INSTANTIATE_TEST_SUITE_P(Dialects, Random,
                         testing::Values(Dialect::kMysql, Dialect::kAnsi, Dialect::kPostgres),
                         [](const auto& one) { return RulesOf(one.param).name; });

TEST_P(Random, ShapesDependOnAllButValues) {
  ShapeMaker used({.dialect = dialect_});
  for (std::uint64_t number = 0; number < kStatements; ++number) {
    DrawnStatement statement(dialect_, number);
    const std::string first = statement.Write();
    const std::string shape = ShapeOf(first, dialect_);
    for (int i = 0; i < 3; ++i) {
      const std::string other = statement.Write();
      ASSERT_EQ(used.MakeShape(other), shape) << number << "\n" << first << "\n" << other;
    }
    std::string words = ' ' + shape + ' ';
    for (char& c : words) c = IsWord(c) || c == '@' ? Lower(c) : ' ';
    for (const std::string& word : statement.Words()) {
      ASSERT_THAT(words, HasSubstr(' ' + word + ' ')) << first << "\n" << shape;
    }
    statement.ChangeOne();
    ASSERT_NE(used.MakeShape(statement.Write()), shape) << number << "\n" << first;
  }
}

std::vector<std::string> Tokens() {
  std::vector<std::string> tokens;
  for (const CaseRow& row : ReadCases("tokens.txt")) {
    EXPECT_FALSE(row.texts.empty()) << row.lines;
    tokens.insert(tokens.end(), row.texts.begin(), row.texts.end());
  }
  return tokens;
}

// All pairs of tokens and of a few longer statements.
TEST_P(Random, ShapesDependOnNoStatementBefore) {
  std::vector<std::string> statements = Tokens();
  for (int i = 0; i < 40; ++i) statements.push_back(random_.Next());
  ShapeMaker used({.dialect = dialect_});
  for (const std::string& before : statements) {
    // The second may follow in the same text, unless the first has an open quote or comment.
    const std::string marked = ShapeOf(before + ";x", dialect_);
    const bool closed = marked.ends_with("; x") && before.find("/*") == std::string::npos;
    for (const std::string& sql : statements) {
      const std::string shape = ShapeOf(sql, dialect_);
      used.MakeShape(before);
      ASSERT_EQ(used.MakeShape(sql), shape) << before << "\n" << sql;
      if (!closed || shape == "/* empty */") continue;
      std::string both = used.MakeShape(before + ';' + sql);
      const std::size_t end = marked.size() - 2;
      both.erase(end, both.at(end) == ' ' ? 1 : 0);
      ASSERT_EQ(both, marked.substr(0, end) + shape) << before << "\n" << sql;
    }
  }
}

// Each token alone and all of them in random order, as long statements. None may cost more than so
// many steps and bytes of memory a byte.
TEST_P(Random, ShapesCostLittleAByte) {
  constexpr std::size_t kSize = 20'000;
  constexpr std::uint64_t kMostSteps = 200;
  constexpr std::size_t kMostMemory = 20;
  constexpr std::size_t kConstantMemory = 2000;
  const std::vector<std::string> tokens = Tokens();
  std::mt19937_64 random(1);
  for (std::size_t family = 0; family < tokens.size() + 10; ++family) {
    std::string sql;
    while (sql.size() < kSize) {
      sql += tokens[family < tokens.size() ? family : random() % tokens.size()];
    }
    const PeakMemory peak;
    const std::uint64_t before = steps;
    ShapeOf(sql, dialect_);
    EXPECT_LE(steps - before, kMostSteps * sql.size()) << sql.substr(0, 60);
    EXPECT_LE(peak.Bytes(), kMostMemory * sql.size() + kConstantMemory) << sql.substr(0, 60);
  }
}

// The statements that the splitter finds in `sql` if it gets the text in two pieces.
std::vector<std::string_view> Split(const std::string& sql, std::size_t cut, Dialect dialect) {
  const auto splitter = MakeSqlSplitter({.dialect = dialect});
  std::vector<std::string_view> statements;
  std::string_view rest = sql;
  Found found;
  if (cut < sql.size()) rest.remove_prefix(splitter->Split(rest.substr(0, cut), false, found));
  splitter->Split(rest, true, found);
  for (const FoundStatement& one : found.statements) statements.push_back(one.text);
  return statements;
}

// The statements by their tokens: each semicolon ends one, if a token is before it.
std::vector<std::string_view> SplitByTokens(std::string_view sql, Dialect dialect) {
  std::vector<std::string_view> statements;
  Lexer lexer(sql, dialect);
  const char* begin = nullptr;
  for (;;) {
    const Token token = lexer.Next();
    const bool last = token.kind == TokenKind::kEnd;
    const char* const at = last ? sql.end() : token.text.data();
    if (!last && !token.Is(';')) {
      begin = begin == nullptr ? at : begin;
      continue;
    }
    if (begin != nullptr) statements.push_back(Trimmed({begin, at}));
    if (last) return statements;
    begin = nullptr;
  }
}

// Whether `sql` has a line of "/" or "go" or an executable comment, for which the splitter has
// rules.
bool HasMore(std::string sql, Dialect dialect) {
  if (dialect == Dialect::kMysql)
    return sql.find("/*!") != std::string::npos || sql.find("/*M!") != std::string::npos;
  std::erase_if(sql, [](char c) { return c != '\n' && IsBlank(c); });
  const std::string lines = '\n' + sql + '\n';
  return dialect == Dialect::kAnsi &&
         (lines.find("\n/\n") != std::string::npos || lines.find("\ngo\n") != std::string::npos);
}

TEST_P(Random, OpaquePartsEndAlikeForTheSplitterAndTheLexer) {
  std::size_t compared = 0;
  for (std::uint64_t number = 0; number < kStatements; ++number) {
    const std::string sql =
        (number % 2 == 0 ? DrawnStatement(dialect_, number).Write() : random_.Next()) + ';' +
        random_.Next();
    const std::vector<std::string_view> whole = Split(sql, sql.size(), dialect_);
    if (!HasMore(sql, dialect_)) {
      ASSERT_EQ(whole, SplitByTokens(sql, dialect_)) << sql;
      ++compared;
    }
    for (std::size_t cut = 0; cut < sql.size() && sql.size() <= 400; ++cut) {
      ASSERT_EQ(Split(sql, cut, dialect_), whole) << "cut at " << cut << "\n" << sql;
    }
  }
  EXPECT_GT(compared, kStatements / 3);
}

}  // namespace
}  // namespace tarn::test

// Tests where the tokens, quotes and comments of SQL begin and end.
#include "sql/lexer.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "logs/formats.h"
#include "sql/text.h"
#include "support/drawn_statements.h"
#include "support/random_statements.h"

namespace tarn::test {
namespace {

using namespace tarn::host;

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

// The ends of the statements by their tokens: each semicolon ends one, if a token is before it.
std::vector<std::size_t> EndsByTokens(std::string_view sql, Dialect dialect) {
  std::vector<std::size_t> ends;
  Lexer lexer(sql, dialect);
  bool any = false;
  for (Token token = lexer.Next();; token = lexer.Next()) {
    const bool last = token.kind == TokenKind::kEnd;
    if (any && (last || token.Is(';'))) {
      const auto at = last ? sql.size() : static_cast<std::size_t>(token.text.data() - sql.data());
      ends.push_back(Trimmed(sql.substr(0, at)).size() + sql.find_first_not_of(" \t\n\v\f\r"));
    }
    if (last) return ends;
    any = !token.Is(';');
  }
}

// Whether `sql` has more for the splitter than quotes, comments and semicolons, for example a line
// "go".
bool HasMore(const std::string& sql, Dialect dialect) {
  if (RulesOf(dialect).go_lines) {
    std::istringstream lines(sql);
    for (std::string line; std::getline(lines, line);) {
      if (Trimmed(line) == "/" || EqualIgnoringCase(Trimmed(line), "go")) return true;
    }
  }
  return RulesOf(dialect).executable_comments &&
         (sql.find("/*!") != std::string::npos || sql.find("/*M!") != std::string::npos);
}

class OpaqueParts : public testing::TestWithParam<Dialect> {};

TEST_P(OpaqueParts, EndAlikeForTheSplitterAndTheLexer) {
  constexpr std::uint64_t kTexts = 2000;
  RandomStatements random(static_cast<std::uint64_t>(GetParam()) + 10);
  std::size_t compared = 0;
  for (std::uint64_t number = 0; number < kTexts; ++number) {
    const std::string sql = number % 2 == 0
                                ? DrawnStatement(GetParam(), number).Write() + ';' + random.Next()
                                : random.Next() + ';' + random.Next();
    const std::vector<std::string_view> whole = Split(sql, sql.size(), GetParam());
    if (!HasMore(sql, GetParam())) {
      std::vector<std::size_t> ends;
      for (const std::string_view statement : whole) {
        ends.push_back(static_cast<std::size_t>(statement.end() - sql.data()));
      }
      ASSERT_EQ(ends, EndsByTokens(sql, GetParam())) << sql;
      ++compared;
    }
    if (sql.size() > 400) continue;
    for (std::size_t cut = 0; cut < sql.size(); ++cut) {
      ASSERT_EQ(Split(sql, cut, GetParam()), whole) << "cut at " << cut << "\n" << sql;
    }
  }
  EXPECT_GT(compared, kTexts / 3);
}

std::string NameOf(const testing::TestParamInfo<Dialect>& info) { return RulesOf(info.param).name; }

INSTANTIATE_TEST_SUITE_P(Dialects, OpaqueParts,
                         testing::Values(Dialect::kMysql, Dialect::kAnsi, Dialect::kPostgres),
                         NameOf);

}  // namespace
}  // namespace tarn::test

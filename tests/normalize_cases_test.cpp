// The canonical text as a host sees it, through the loaded plug-in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "support/case_file.h"
#include "tarn_host/plugin.h"

namespace tarn::test {
namespace {

using testing::StrEq;

class Normalizer : public testing::Test {
 protected:
  std::string Normalize(std::string_view sql) {
    std::string text(sql);
    plugin_.Product().NormalizeSQL(text);
    return text;
  }

  const host::Plugin plugin_{TARN_PLUGIN_PATH};
};

class NormalizeSQL : public Normalizer, public testing::WithParamInterface<CaseRow> {};

TEST_P(NormalizeSQL, GivesTheCanonicalText) {
  EXPECT_EQ(Normalize(GetParam().texts.at(0)), GetParam().texts.at(1));
}

INSTANTIATE_TEST_SUITE_P(Cases, NormalizeSQL, testing::ValuesIn(ReadCases("canonical_text.txt")),
                         CaseName);

using OutOfRangeLiteral = Normalizer;

TEST_F(OutOfRangeLiteral, ThrowsBadLexicalCastAndLeavesTheStatement) {
  for (const std::string statement : {"x=1.0e999", "select 1.50 from t where x = 1.0E+309"}) {
    std::string sql = statement;
    // Boost's exception is known here by its base alone.
    try {
      plugin_.Product().NormalizeSQL(sql);
      ADD_FAILURE() << "no exception for " << statement;
    } catch (const std::bad_cast& error) {
      EXPECT_THAT(error.what(),
                  StrEq("bad lexical cast: source type value could not be interpreted as target"));
    }
    EXPECT_EQ(sql, statement);
  }
}

using ExampleStatements = Normalizer;

TEST_F(ExampleStatements, AllHaveACanonicalText) {
  std::ifstream file(TARN_EXAMPLES "/statements.sql");
  ASSERT_TRUE(file.is_open());
  int count = 0;
  for (std::string statement; std::getline(file >> std::ws, statement, ';'); ++count) {
    const std::string canonical = Normalize(statement);
    EXPECT_FALSE(canonical.empty()) << statement;
  }
  constexpr int kAtLeast = 30;
  EXPECT_GE(count, kAtLeast);
}

using RepeatedRun = Normalizer;

TEST_F(RepeatedRun, KeepsNoStateBetweenCalls) {
  const std::vector<std::string_view> statements = {"select t1.a from b t1", "select t2.a, t1.b",
                                                    "x=1.50"};
  std::vector<std::string> first;
  first.reserve(statements.size());
  for (const std::string_view statement : statements) first.push_back(Normalize(statement));
  EXPECT_THROW(Normalize("x=1.0e999"), std::bad_cast);
  for (std::size_t i = statements.size(); i-- > 0;) {
    EXPECT_EQ(Normalize(statements[i]), first[i]);
  }
}

}  // namespace
}  // namespace tarn::test

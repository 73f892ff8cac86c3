// tarn_host as a person runs it: the built program, on good and bad input.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "support/run_program.h"

namespace {

using namespace std::string_literals;
using tarn::test::RunOptions;
using tarn::test::RunProgram;
using tarn::test::RunResult;
using ::testing::HasSubstr;
using ::testing::StartsWith;

RunResult Tool(std::vector<std::string> arguments, const RunOptions& options = {}) {
  arguments.insert(arguments.begin(), TARN_HOST_PATH);
  return RunProgram(arguments, options);
}

// One line that begins as all of the tool's errors do.
MATCHER(IsOneErrorLine, "") {
  return arg.starts_with("tarn_host: ") && arg.ends_with('\n') && arg.find('\n') == arg.size() - 1;
}

struct Case {
  const char* id;
  std::vector<std::string> arguments;
  std::string input;
  std::string output;
};

void PrintTo(const Case& c, std::ostream* stream) { *stream << c.id; }

struct CaseName {
  template <typename Row>
  std::string operator()(const ::testing::TestParamInfo<Row>& info) const {
    return info.param.id;
  }
};

class GoodRun : public ::testing::TestWithParam<Case> {};

TEST_P(GoodRun, Prints) {
  const RunResult result = Tool(GetParam().arguments, {.input = GetParam().input});
  EXPECT_EQ(result.output, GetParam().output);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.exit_code, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Normalize, GoodRun,
    ::testing::Values(
        Case{"NoStatement", {"normalize"}, "", ""},
        Case{"BlanksAndComments", {"normalize"}, " ;; -- a;b\n /* c;d */ ; ", ""},
        Case{"Sql", {"normalize"}, "select 1;select 2", "SELECT 1;\nSELECT 2;\n"},
        Case{"SemicolonsInQuotes",
             {"normalize", "--pairs"},
             R"(a ';' ";" `;`;b)",
             "a ';' \";\" `;`\n=> a ';' \";\" `;`\n\nb\n=> b\n\n"},
        Case{"DoubledQuotes",
             {"normalize", "--pairs"},
             "';'';';b",
             "';'';'\n=> ';'';'\n\nb\n=> b\n\n"},
        Case{"BackslashEscapes",
             {"normalize", "--pairs"},
             R"('\';';`\`;b)",
             "'\\';'\n=> '\\';'\n\n`\\`\n=> `\\`\n\nb\n=> b\n\n"},
        Case{"CommentsBeforeAndWithin",
             {"normalize", "--pairs"},
             "-- x;'\na /*;'*/ --;\n b;c",
             "a /*;'*/ --;\n b\n=> a /*;'*/ --; b\n\nc\n=> c\n\n"},
        Case{"NoComments", {"normalize"}, "a-b/c;d", "a - b / c;\nd;\n"},
        Case{"Lines", {"normalize", "--input=lines"}, "a;b\n\n'c\nd", "a ; b\n\n' c\nd\n"},
        Case{"Nul", {"normalize", "--input=nul"}, "a\nb\0\0\xFF=1\0"s, "a b\0\0\xFF= 1\0"s},
        Case{"NulPairs",
             {"normalize", "--input=nul", "--pairs"},
             "0x1F"s,
             "0x1F\0"
             "31\0"s},
        Case{"DashIsStandardInput", {"normalize", "-"}, "select 1", "SELECT 1;\n"}),
    CaseName());

}  // namespace

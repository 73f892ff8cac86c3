// tarn_host as a person runs it: the built program, on good and bad input.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
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

INSTANTIATE_TEST_SUITE_P(
    MapAndTrace, GoodRun,
    ::testing::Values(Case{"Zero", {"map", "0"}, "", "0 0x0\n"},
                      Case{"Negative", {"map", "-1"}, "", "184549395 0xB000013\n"},
                      Case{"Smallest", {"map", "-2147483648"}, "", "184549395 0xB000013\n"},
                      Case{"Hexadecimal", {"map", "0x7fffffff"}, "", "184549395 0xB000013\n"},
                      Case{"NegativeHexadecimal", {"map", "-0x0"}, "", "0 0x0\n"},
                      Case{"TraceShowsChangesAlone",
                           {"trace", "a\n0x1F "},
                           "",
                           "input                               [a\\n0x1F ]\n"
                           " 3 hexadecimal-literal conversion   [a\\n31 ]\n"
                           " 9 token spacing                    [ a  31 ]\n"
                           "10 whitespace collapse              [ a 31 ]\n"
                           "22 leading trim                     [a 31 ]\n"
                           "23 trailing trim                    [a 31]\n"
                           "result                              [a 31]\n"},
                      Case{"TraceReadsStandardInput",
                           {"trace"},
                           "\x01\0"s,
                           "input                               [\\x01\\x00]\n"
                           "result                              [\\x01\\x00]\n"}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(Shapes, GoodRun,
                         ::testing::Values(Case{"None", {"shapes"}, "", "0 statements, 0 shapes\n"},
                                           Case{"MostFrequentFirstThenFirstSeen",
                                                {"shapes"},
                                                "b;a;c = 0x1;c=1;\na;c  = 1",
                                                "6 statements, 3 shapes\n"
                                                "         3  50.00 %  c = 0x1\n"
                                                "         2  33.33 %  a\n"
                                                "         1  16.67 %  b\n"},
                                           Case{"Top",
                                                {"shapes", "--input=lines", "--top", "1"},
                                                "a\nb\nb\n",
                                                "3 statements, 2 shapes\n         2  66.67 %  b\n"},
                                           Case{"Json",
                                                {"shapes", "--input=nul", "--json"},
                                                "\xFF\0\xFF"s,
                                                R"({
  "statements": 2,
  "failed": 0,
  "shape_count": 1,
  "shapes": [
    {
      "count": 2,
      "share": 1.0,
      "canonical": ")"
                                                "\xEF\xBF\xBD"
                                                R"(",
      "example": ")"
                                                "\xEF\xBF\xBD"
                                                R"("
    }
  ]
}
)"}),
                         CaseName());

struct BadCase {
  const char* id;
  std::vector<std::string> arguments;
  std::string input;
  int exit_code;
  // What still comes out, and what the one line on standard error holds.
  std::string output;
  std::vector<std::string> reasons;
};

void PrintTo(const BadCase& c, std::ostream* stream) { *stream << c.id; }

class BadRun : public ::testing::TestWithParam<BadCase> {};

TEST_P(BadRun, SaysWhyInOneLine) {
  const RunResult result = Tool(GetParam().arguments, {.input = GetParam().input});
  EXPECT_EQ(result.output, GetParam().output);
  EXPECT_THAT(result.errors, IsOneErrorLine());
  for (const std::string& reason : GetParam().reasons) {
    EXPECT_THAT(result.errors, HasSubstr(reason));
  }
  EXPECT_EQ(result.exit_code, GetParam().exit_code);
}

constexpr int kFailed = 1;
constexpr int kTrouble = 2;

INSTANTIATE_TEST_SUITE_P(
    Usage, BadRun,
    ::testing::Values(
        BadCase{"NoCommand", {}, "", kTrouble, "", {"a command is required"}},
        BadCase{"UnknownCommand", {"normalise"}, "", kTrouble, "", {"normalise"}},
        BadCase{"LineBreakInArgument", {"a\nb"}, "", kTrouble, "", {"a\\nb"}},
        BadCase{"UnknownOption", {"normalize", "--no"}, "", kTrouble, "", {"normalize", "--no"}},
        BadCase{
            "UnknownFormat", {"normalize", "--input=csv"}, "", kTrouble, "", {"--input", "csv"}},
        BadCase{"TopZero", {"shapes", "--top=0"}, "", kTrouble, "", {"--top", "0"}},
        BadCase{"NoThread", {"shapes", "--threads=0"}, "", kTrouble, "", {"--threads", "0"}},
        BadCase{"NoStatus", {"map"}, "", kTrouble, "", {"STATUS"}},
        BadCase{"EmptyStatus", {"map", ""}, "", kTrouble, "", {"\"\""}},
        BadCase{"WordAsStatus", {"map", "1x"}, "", kTrouble, "", {"1x"}},
        BadCase{"TwoSigns", {"map", "--", "--1"}, "", kTrouble, "", {"--1"}},
        BadCase{"StatusTooLarge", {"map", "2147483648"}, "", kTrouble, "", {"2147483648", "range"}},
        BadCase{"StatusTooSmall", {"map", "-2147483649"}, "", kTrouble, "", {"range"}},
        BadCase{"StatusHuge", {"map", "0xfffffffffffffffff"}, "", kTrouble, "", {"range"}}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Inputs, BadRun,
    ::testing::Values(
        BadCase{"FailingStatement",
                {"normalize"},
                "a;x=1.0e999;b",
                kFailed,
                "a;\nb;\n",
                {"standard input: statement 2: "}},
        BadCase{"FailingStatementInTrace",
                {"trace", "1.0e999"},
                "",
                kFailed,
                "input                               [1.0e999]\n",
                {"step 2: "}},
        BadCase{"FailingStatementInShapes",
                {"shapes", "-", "-"},
                "x=1.0e999;a;y=1.0e999",
                kFailed,
                "1 statements, 1 shapes\n         1 100.00 %  a\n",
                {"2 statements failed", "standard input: statement 1: "}},
        BadCase{"OpenQuote", {"normalize"}, "a;b 'c", kFailed, "a;\nb ' c;\n", {"quote"}},
        BadCase{"OpenComment", {"normalize"}, "a;/* b", kFailed, "a;\n", {"comment"}},
        BadCase{"MissingFile",
                {"normalize", "/no/such", "-"},
                "a",
                kTrouble,
                "a;\n",
                {"/no/such: No such file or directory"}},
        BadCase{
            "FolderAsFile", {"normalize", "-", "/"}, "a", kTrouble, "a;\n", {"/: Is a directory"}},
        BadCase{"MissingFileInShapes",
                {"shapes", "/no/such", "-"},
                "a",
                kTrouble,
                "1 statements, 1 shapes\n         1 100.00 %  a\n",
                {"/no/such: No such file or directory"}},
        BadCase{"MissingLibrary",
                {"map", "0", "--plugin=/no/such.so"},
                "",
                kTrouble,
                "",
                {"/no/such.so: ", "No such file or directory"}},
        BadCase{"LibraryWithoutFunction",
                {"normalize", "--plugin=libm.so.6"},
                "a",
                kTrouble,
                "",
                {"libm.so.6: ", "GetProductInterfaceForVESTA"}},
        BadCase{"CheckOfMissingFile",
                {"check", "/no/such.so"},
                "",
                kTrouble,
                "",
                {"/no/such.so: No such file or directory"}},
        BadCase{"CheckOfText",
                {"check", "/etc/passwd"},
                "",
                kTrouble,
                "",
                {"/etc/passwd: not an ELF file"}},
        BadCase{"CheckOfExecutable",
                {"check", TARN_HOST_PATH},
                "",
                kTrouble,
                "",
                {TARN_HOST_PATH ": an executable"}}),
    CaseName());

TEST(Tool, ReportsUnwritableOutput) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"normalize"},
                                             {"shapes"},
                                             {"trace"},
                                             {"map", "0"},
                                             {"check"},
                                             {"--help"},
                                             {"--version"}}) {
    const RunResult full = Tool(arguments, {.input = "a", .output_path = "/dev/full"});
    EXPECT_EQ(full.errors, "tarn_host: cannot write standard output: No space left on device\n");
    EXPECT_EQ(full.exit_code, kTrouble) << arguments[0];
  }
}

TEST(Tool, ReportsReaderThatWentAway) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  const tarn::test::OwnedFd write_end(ends[1]);
  const RunResult result = Tool({"normalize"}, {.input = "a", .output_fd = write_end.Get()});
  EXPECT_EQ(result.errors, "tarn_host: cannot write standard output: Broken pipe\n");
  EXPECT_EQ(result.exit_code, kTrouble);
}

TEST(Tool, EveryCommandHelpsWithExamples) {
  const RunResult help = Tool({"--help"});
  EXPECT_EQ(help.exit_code, 0);
  for (const char* command : {"normalize", "trace", "map", "shapes", "check"}) {
    EXPECT_THAT(help.output, HasSubstr(std::string("\n  ") + command + ' '));
    const RunResult own = Tool({command, "--help"});
    EXPECT_THAT(own.output, HasSubstr(std::string("\n  tarn_host ") + command));
    EXPECT_EQ(own.exit_code, 0) << own.errors;
  }
}

// Separators and escapes must be found wherever the blocks of a long input happen to be cut.
TEST(Tool, NormalizeCutsLongInputsAnywhere) {
  constexpr int kStatements = 60'000;
  std::string input;
  for (int number = 0; number < kStatements; ++number) {
    const std::string text = "a" + std::to_string(number) + R"( '\';--' /*;*/)";
    input.append(text).append(number % 2 == 0 ? ";" : "; --;'\n/*'*/");
  }
  const RunResult result = Tool({"normalize", "--pairs"}, {.input = input});
  EXPECT_EQ(result.exit_code, 0) << result.errors;
  // The quotes move; what is at stake is where statements begin and end.
  int count = 0;
  for (std::size_t at = 0; (at = result.output.find("\n=> ", at)) != std::string::npos; ++at)
    ++count;
  EXPECT_EQ(count, kStatements);
  EXPECT_THAT(result.output, StartsWith("a0 '\\';--' /*;*/\n=> "));
}

TEST(Tool, OneStatementMayBeLongerThanABlock) {
  const std::string word(std::size_t{1} << 20U, 'a');
  const RunResult result = Tool({"normalize", "--input=lines"}, {.input = word + "\nb\n" + word});
  EXPECT_EQ(result.output, word + "\nb\n" + word + "\n");
}

TEST(Tool, ShapesCountsOnManyThreads) {
  constexpr int kStatements = 100'000;
  constexpr int kShapes = 7;
  std::string input;
  for (int number = 0; number < kStatements; ++number) {
    input += "select x" + std::to_string(number % kShapes) + (number == 70 ? " \n" : "\n");
  }
  const std::string expected =
      "100000 statements, 7 shapes\n"
      "     14286  14.29 %  select x0\n     14286  14.29 %  select x1\n"
      "     14286  14.29 %  select x2\n     14286  14.29 %  select x3\n"
      "     14286  14.29 %  select x4\n     14285  14.29 %  select x5\n"
      "     14285  14.29 %  select x6\n";
  for (const char* threads : {"1", "2", "8"}) {
    const RunResult result =
        Tool({"shapes", "--input=lines", "--threads", threads}, {.input = input});
    EXPECT_EQ(result.output, expected) << threads << " threads";
    EXPECT_EQ(result.exit_code, 0) << result.errors;
  }
}

TEST(Tool, ShapesPrintsWhatItHasOnCtrlC) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const tarn::test::OwnedFd read_end(ends[0]);
  tarn::test::OwnedFd write_end(ends[1]);
  tarn::test::RunningProgram tool({TARN_HOST_PATH, "shapes"}, {.input_fd = read_end.Get()});
  ASSERT_EQ(write(write_end.Get(), "a;a;half", 8), 8);
  // Once the pipe is empty the tool is past the start, where Ctrl-C would end it outright.
  int unread = 0;
  do {
    usleep(1000);
    ASSERT_EQ(ioctl(read_end.Get(), FIONREAD, &unread), 0);
  } while (unread > 0);
  tool.Signal(SIGINT);
  const RunResult result = tool.Wait();
  EXPECT_EQ(result.exit_code, 130);
  EXPECT_THAT(result.output, HasSubstr(" statements, "));
  EXPECT_THAT(result.output, ::testing::Not(HasSubstr("half")));
  EXPECT_THAT(result.errors, AllOf(IsOneErrorLine(), HasSubstr("interrupted")));
}

TEST(Tool, CheckPassesTheLibraryBesideIt) {
  const RunResult result = Tool({"check"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(result.output, ::testing::Not(HasSubstr("FAIL")));
  for (const char* fact :
       {"entry function alone: GetProductInterfaceForVESTA\n", "unique symbols", "allows unloading",
        "soname: libtarn_interface_for_vesta.so\n", "loads", "finds libstdc++", "two calls",
        "nine slots", "type: CProductInterface_Tarn\n", "MapErrorCode", "NormalizeSQL",
        "unloads"}) {
    EXPECT_THAT(result.output, HasSubstr(fact));
  }
}

TEST(Tool, CheckTellsWhatIsWrongWithALibrary) {
  const RunResult result = Tool({"check", TARN_WRONG_PLUGIN_PATH});
  EXPECT_EQ(result.exit_code, kFailed);
  EXPECT_EQ(result.errors, "");
  for (const char* fact :
       {"FAIL  exports the entry function alone", "FAIL  has no unique symbols: pinned",
        "FAIL  allows unloading: DF_1_NODELETE", "FAIL  soname: libwrong_plugin.so",
        "FAIL  entry function: two pointers", "pass  dispatch table", "FAIL  type: WrongProduct",
        "FAIL  MapErrorCode", "FAIL  NormalizeSQL: no such luck", "FAIL  unloads"}) {
    EXPECT_THAT(result.output, HasSubstr(fact));
  }
}

// A file whose tables point anywhere must not lead the reader out of it.
TEST(Tool, CheckSurvivesDamagedLibraries) {
  const tarn::test::OwnedFd library(open(TARN_PLUGIN_PATH, O_RDONLY | O_CLOEXEC));
  const std::string whole = tarn::test::Content(library.Get());
  constexpr std::size_t kHeader = 64;
  for (std::size_t size :
       {std::size_t{4}, kHeader - 1, kHeader, whole.size() / 2, whole.size() - 1}) {
    const tarn::test::OwnedFd cut = tarn::test::ScratchFile(whole.substr(0, size));
    const RunResult result = Tool({"check", "/dev/stdin"}, {.input_fd = cut.Get()});
    EXPECT_EQ(result.exit_code, kTrouble) << size;
    EXPECT_THAT(result.errors, IsOneErrorLine()) << size;
  }
}

}  // namespace

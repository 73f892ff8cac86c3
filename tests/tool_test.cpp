// tarn_host as a person runs it: the built program, on good and bad input.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/case_file.h"
#include "support/surroundings.h"
#include "support/tool.h"

namespace tarn::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class ToolRun : public testing::TestWithParam<CaseRow> {};

TEST_P(ToolRun, PrintsAndEndsAsItShould) {
  const TemporaryFolder folder;
  std::filesystem::copy(TARN_CASES "/tool", folder.Path(""));
  const std::string key(64, 'a');
  folder.Write("some.key", key);
  folder.Write("exposed.key", key, 0644);
  const std::vector<std::string>& texts = GetParam().texts;
  RunOptions options{
      .input = texts.at(0),
      .environment = {"TARN_SYS_CONF=sys.json", "TARN_KEY_FILE=some.key", "APP_CONF_FILE=app.json",
                      "TARN_PROC_ID=4071", "TARN_PROC_HANDLE=70000", "TARN_LOG_LEVEL=off"},
      .folder = folder.Path("")};
  std::vector<std::string> arguments;
  std::istringstream words(GetParam().label);
  std::string word;
  int exit_code = -1;
  words >> word >> exit_code;
  while (words >> word) {
    const bool variable = arguments.empty() && word.find('=') != std::string::npos;
    // An empty argument is written as a shell would have it.
    if (word == "''") word.clear();
    // The first of a name counts.
    std::vector<std::string>& list = variable ? options.environment : arguments;
    list.insert(variable ? list.begin() : list.end(), Unescaped(word));
  }
  const RunResult result = Tool(arguments, options);
  EXPECT_EQ(result.exit_code, exit_code);
  EXPECT_EQ(result.output, texts.at(1));
  if (exit_code != 0) {
    EXPECT_THAT(result.errors, IsOneErrorLine());
  } else if (texts.size() == 2) {
    EXPECT_EQ(result.errors, "");
  }
  EXPECT_THAT(result.errors, Not(HasSubstr("top secret")));
  for (std::size_t i = 2; i < texts.size(); ++i) EXPECT_THAT(result.errors, HasSubstr(texts[i]));
}

INSTANTIATE_TEST_SUITE_P(Cases, ToolRun, testing::ValuesIn(ReadCases("tool.txt")), CaseName);

constexpr int kFailed = 1;
constexpr int kTrouble = 2;

TEST(Tool, ReportsUnwritableOutput) {
  const OwnedFd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  for (const char* command : {"normalize", "shapes", "trace", "check", "--help"}) {
    const RunResult result = Tool({command}, {.input = "a", .output_fd = full.Get()});
    EXPECT_EQ(result.errors, "tarn_host: cannot write standard output: No space left on device\n");
    EXPECT_EQ(result.exit_code, kTrouble) << command;
  }
}

TEST(Tool, EndsInSilenceWhenTheReaderGoesAway) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  const OwnedFd write_end(ends[1]);
  const RunResult result = Tool({"normalize"}, {.input = "a", .output_fd = write_end.Get()});
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.exit_code, 128 + SIGPIPE);
}

// Whatever the tool opens must not take the number of a standard stream.
TEST(Tool, ReportsClosedStreams) {
  const auto run = [](const std::string& command) {
    return RunProgram({"/bin/sh", "-c", TARN_HOST_PATH " " + command});
  };
  EXPECT_EQ(run("shapes <&-").errors, "tarn_host: standard input: Bad file descriptor\n");
  EXPECT_EQ(run("map 0 >&-").errors,
            "tarn_host: cannot write standard output: Bad file descriptor\n");
  EXPECT_EQ(run("shapes no-such-file 2>&-").exit_code, kTrouble);
}

TEST(Tool, CheckPassesTheLibraryBesideIt) {
  const RunResult result = Tool({"check"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(result.output, AllOf(HasSubstr("pass  unloads"), Not(HasSubstr("FAIL"))));
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

}  // namespace
}  // namespace tarn::test

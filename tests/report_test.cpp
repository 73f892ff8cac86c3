// Tests of tarn_host's shapes and normalize that do not fit into a row of cases/tool.txt.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "support/surroundings.h"
#include "support/tool.h"

namespace tarn::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

TEST(Normalize, TakesStatementsLongerThanABlock) {
  const std::string word(std::size_t{1} << 20U, 'a');
  const RunResult result = Tool({"normalize", "--input=lines"}, {.input = word + "\nb\n" + word});
  EXPECT_EQ(result.output, word + "\nb\n" + word + "\n");
}

TEST(Shapes, ReplaceInvalidUtf8InJson) {
  const RunResult result = Tool({"shapes", "--input=nul", "--json"}, {.input = "\xFF;\n\""});
  const auto report = nlohmann::json::parse(result.output);
  EXPECT_EQ(report["shapes"][0]["example"], "\xEF\xBF\xBD;\n\"");
  EXPECT_EQ(nlohmann::json::parse(Tool({"shapes", "--json"}).output)["shapes"].size(), 0);
}

TEST(Shapes, PrintTheDetailsOfALogInJson) {
  const std::string log = TARN_EXAMPLES "/slow.log";
  const RunResult result =
      Tool({"shapes", "--input=slowlog", "--json", "--top=2", "--sort=max", log});
  EXPECT_EQ(result.errors, "");
  const auto report = nlohmann::json::parse(result.output);
  EXPECT_EQ(report["statements"], 41);
  EXPECT_EQ(report["failed"], 0);
  EXPECT_EQ(report["shape_count"], 7);
  EXPECT_THAT(report["first_time"].get<std::string>(), StartsWith("2026-11-24T09:05:29"));
  EXPECT_THAT(report["last_time"].get<std::string>(), StartsWith("2026-11-24T09:22:10"));
  EXPECT_EQ(report["others"]["shape_count"], 5);
  ASSERT_EQ(report["shapes"].size(), 2);
  const auto& slowest = report["shapes"][0];
  EXPECT_EQ(slowest["count"], 10);
  EXPECT_EQ(slowest["rows_sent"], 10);
  EXPECT_EQ(slowest["rows_examined"], 929770);
  EXPECT_NEAR(slowest["total_seconds"], 18.78, 0.01);
  EXPECT_NEAR(slowest["mean_seconds"], 1.878, 0.001);
  EXPECT_EQ(slowest["max_seconds"], slowest["p95_seconds"]);
  EXPECT_EQ(slowest["id"], "f252466150002cec");
  EXPECT_THAT(slowest["shape"], HasSubstr("between ? and ?"));
  EXPECT_THAT(slowest["canonical"], HasSubstr("BETWEEN '"));
  EXPECT_THAT(slowest["example"], HasSubstr("SUM(total)\nFROM orders"));
  EXPECT_EQ(slowest["example_seconds"], slowest["max_seconds"]);
  EXPECT_EQ(slowest["histogram"]["2.235223"], 2);
  EXPECT_FALSE(slowest.contains("errors"));
  EXPECT_NEAR(slowest["share"], 10.0 / 41, 1e-4);
}

// The sum of the reports of several logs is the report of all of them.
TEST(Shapes, AddUpReports) {
  const TemporaryFolder folder;
  const std::string log =
      folder.Write("a.log", "# Query_time: 1.5\nselect 1;\n# Query_time: 3\nb;\n");
  const std::string more = folder.Write("b.log", "# Query_time: 2\nselect 2;\n");
  const auto run = [](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"shapes", "--json", "--input=slowlog"});
    return Tool(arguments);
  };
  const std::string first = folder.Write("a.json", run({log}).output);
  const std::string second = folder.Write("b.json", run({more}).output);
  const std::string whole = run({log, more}).output;
  EXPECT_THAT(whole, HasSubstr("\"example\": \"select 2\""));
  EXPECT_EQ(run({first, second}).output, whole);
  EXPECT_EQ(run({second, log}).output, whole);
  const struct {
    std::vector<std::string> arguments;
    const char* reason;
  } kRefused[] = {{{first, "--exact"}, "other --exact"},
                  {{first, "--since=1h"}, "no single statements"},
                  {{folder.Write("part.json", run({log, "--top=1"}).output)}, "lacks shapes"}};
  for (const auto& [arguments, reason] : kRefused) {
    const RunResult result = run(arguments);
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_THAT(result.errors, AllOf(IsOneErrorLine(), HasSubstr(reason)));
  }
  // Only the shape of select in a.log costs more than before; b is gone.
  const auto comparison = nlohmann::json::parse(run({second, "--compare=" + first}).output);
  EXPECT_EQ(comparison["after"]["total_seconds"], 2.0);
  EXPECT_EQ(comparison["changes"][0]["change"], "slower");
  EXPECT_EQ(comparison["changes"][0]["before"]["mean_seconds"], 1.5);
  EXPECT_EQ(comparison["shape_count"], 2);
  EXPECT_EQ(comparison["changes"][1]["change"], "gone");
  EXPECT_FALSE(comparison["changes"][1].contains("after"));
}

// Runs the manual's commands for several processes as a person would type them.
TEST(Shapes, AddUpReportsAsTheManualSays) {
  std::ifstream manual(TARN_MANUAL);
  std::vector<std::string> commands;
  const std::string_view kCommand = ".Dl $ ";
  for (std::string line; std::getline(manual, line) && commands.size() < 2;) {
    if (line.starts_with(std::string(kCommand) + "parallel") || commands.size() == 1) {
      commands.push_back(line.substr(kCommand.size()));
    }
  }
  ASSERT_EQ(commands.size(), 2);
  const TemporaryFolder folder;
  for (int number = 0; number < 8; ++number) {
    folder.Write(std::to_string(number) + ".log", "# Query_time: 0." + std::to_string(number) +
                                                      "\nselect " +
                                                      std::to_string(number * number % 7) + ";\n");
  }
  const auto run = [&folder](const std::string& command) {
    const std::string path = std::filesystem::path(TARN_HOST_PATH).parent_path();
    return RunProgram(
        {"/bin/sh", "-c", command},
        {.environment = {"PATH=" + path + ":/usr/bin:/bin", "HOME=" + folder.Path("")},
         .folder = folder.Path("")});
  };
  EXPECT_EQ(run(commands[0]).exit_code, 0);
  const RunResult added = run(commands[1]);
  EXPECT_EQ(added.output, run("tarn_host shapes --input=slowlog *.log").output);
  EXPECT_THAT(added.output, HasSubstr("8 statements, 1 shape\n"));
  EXPECT_EQ(added.errors, "");
}

TEST(Shapes, PrintTheCountsSoFarOnCtrlC) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const OwnedFd read_end(ends[0]);
  OwnedFd write_end(ends[1]);
  RunningProgram tool({TARN_HOST_PATH, "shapes"}, {.input_fd = read_end.Get()});
  ASSERT_EQ(write(write_end.Get(), "a;a;half", 8), 8);
  // An empty pipe shows that the tool has started. During the start Ctrl-C would end it outright.
  int unread = 0;
  do {
    usleep(1000);
    ASSERT_EQ(ioctl(read_end.Get(), FIONREAD, &unread), 0);
  } while (unread > 0);
  tool.Signal(SIGINT);
  const RunResult result = tool.Wait();
  EXPECT_EQ(result.exit_code, 130);
  EXPECT_THAT(result.output, HasSubstr("2 statements, 1 shape\n"));
  EXPECT_THAT(result.output, Not(HasSubstr("half")));
  EXPECT_THAT(result.errors, AllOf(IsOneErrorLine(), HasSubstr("interrupted")));
}

// Paths for the commands. As variables they may contain blanks.
const std::vector<std::string> kPaths{"TOOL=" TARN_HOST_PATH, "EXAMPLES=" TARN_EXAMPLES};

// The output of `command`, run by a shell on a terminal of 60 columns.
std::string OnATerminal(const std::string& command) {
  RunOptions options{.environment = kPaths};
  options.environment.insert(options.environment.end(), {"TERM=xterm", "NO_COLOR="});
  return RunProgram({"/usr/bin/script", "-qec", "stty cols 60; " + command, "/dev/null"}, options)
      .output;
}

RunResult InAPipe(const std::string& command) {
  return RunProgram({"/bin/sh", "-c", command}, {.environment = kPaths});
}

TEST(Terminal, ShowsColoursUnlessTheyAreUnwelcome) {
  const std::string command = "\"$TOOL\" normalize --pairs \"$EXAMPLES/statements.sql\"";
  EXPECT_THAT(OnATerminal(command), HasSubstr("\x1B[1;32m"));
  EXPECT_THAT(OnATerminal("NO_COLOR=1 " + command), Not(HasSubstr("\x1B")));
  EXPECT_THAT(OnATerminal("TERM=dumb " + command), Not(HasSubstr("\x1B")));
  EXPECT_THAT(InAPipe(command).output, Not(HasSubstr("\x1B")));
}

TEST(Terminal, IsFittedByTheTable) {
  const std::string command = "\"$TOOL\" shapes --input=slowlog \"$EXAMPLES/slow.log\"";
  const std::string shown = OnATerminal(command);
  EXPECT_THAT(shown,
              HasSubstr("\r\n     SELECT customer_id, sum(total) FROM orders WHERE cre...\r\n"));
  EXPECT_THAT(InAPipe(command).output, HasSubstr("group by customer_id\n"));
}

// Progress is shown on a terminal only. The input is a pipe, so the total is unknown.
TEST(Terminal, ShowsProgressThereAlone) {
  for (const char* tool : {" shapes", " normalize >/dev/null"}) {
    const std::string command =
        std::string("(echo 'a;'; sleep 0.7; echo 'b;'; sleep 0.2) | \"$TOOL\"") + tool;
    EXPECT_THAT(OnATerminal(command), HasSubstr("\r0 MiB, 2 statements\x1B[K\r\x1B[K")) << tool;
    EXPECT_THAT(OnATerminal("stty cols 19; " + command), HasSubstr("\r0 MiB, 2 statem...\x1B[K"));
    EXPECT_EQ(InAPipe(command).errors, "") << tool;
  }
}

}  // namespace
}  // namespace tarn::test

// tarn_host as a person runs it: the built program, on good and bad input.
#include <elf.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "support/case_file.h"
#include "support/surroundings.h"
#include "support/tool.h"

namespace tarn::test {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

class ToolRun : public testing::TestWithParam<CaseRow> {};

TEST_P(ToolRun, PrintsAndEndsAsItShould) {
  const TemporaryFolder folder;
  std::filesystem::copy(TARN_CASES "/tool", folder.Path(""));
  const std::string key(64, 'a');
  folder.Write("some.key", key);
  folder.Write("exposed.key", key, 0644);
  ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), S_IRWXU), 0);
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
    if (word == "@plugin") word = TARN_PLUGIN_PATH;
    if (word == "@wrong") word = TARN_WRONG_PLUGIN_PATH;
    (variable ? options.environment : arguments).push_back(Unescaped(word));
  }
  arguments.insert(arguments.begin(), {"timeout", "20", TARN_HOST_PATH});
  const RunResult result = RunProgram(arguments, options);
  EXPECT_EQ(result.exit_code, exit_code);
  EXPECT_EQ(result.output, texts.at(1));
  if (exit_code != 0) {
    EXPECT_THAT(result.errors, IsOneErrorLine());
  } else {
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), std::ssize(texts) - 2);
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

TEST(Tool, TellsItsVersionAndHelpsWithExamples) {
  EXPECT_THAT(Tool({"--version"}).output, ContainsRegex("^tarn_host [0-9.]+\n$"));
  EXPECT_THAT(Tool({"map", "--help"}).output, HasSubstr("  tarn_host map 0x7fffffff\n"));
}

TEST(Tool, EndsWithTheWorstOfItsExitCodes) {
  const RunResult result = RunProgram(
      {"/bin/sh", "-c", TARN_HOST_PATH " normalize /no/such - 2>&1"}, {.input = "a;x=1.0e999;b"});
  EXPECT_EQ(result.exit_code, kTrouble);
  // On a screen that shows both streams, in order.
  EXPECT_THAT(result.output, ContainsRegex("/no/such.*\na;\n.*statement 2"));
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
  EXPECT_THAT(
      Tool({"check", TARN_WRONG_PLUGIN_PATH}, {.environment = {"WRONG_PLUGIN_MAPS="}}).output,
      HasSubstr("FAIL  MapErrorCode"));
}

// The tool brings no platform along that could stand in for the missing one.
TEST(Plugins, FindTheirPlatformThemselves) {
  const TemporaryFolder folder;
  const std::string alone = folder.Path("libtarn_interface_for_vesta.so");
  std::filesystem::copy_file(TARN_PLUGIN_PATH, alone);
  RunResult result = Tool({"check", alone});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_THAT(result.output, AllOf(HasSubstr("FAIL  loads: "),
                                   HasSubstr("FAIL  finds libtarn_platform_standin.so: not found"),
                                   ContainsRegex("pass  finds libstdc")));
  const std::string damaged = folder.Write("libtarn_platform_standin.so", "no library");
  EXPECT_THAT(Tool({"check", alone}).output,
              HasSubstr("pass  finds libtarn_platform_standin.so: " + damaged));
  std::filesystem::remove(damaged);
  for (const char* command : {"map", "config", "normalize", "shapes"}) {
    result = Tool({command, "0", "--plugin", alone});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_THAT(result.errors, AllOf(IsOneErrorLine(), HasSubstr("libtarn_platform_standin.so")));
  }
}

TEST(Trace, RefusesWhatNobodyWouldRead) {
  const std::string input((std::size_t{1} << 20U) + 1, 'a');
  const RunResult result = Tool({"trace"}, {.input = input});
  EXPECT_EQ(result.exit_code, 2);
  EXPECT_THAT(result.errors, AllOf(IsOneErrorLine(), HasSubstr("more than 1 MiB")));
}

TEST(Check, OutlivesALibraryThatExits) {
  const RunResult result =
      Tool({"check", TARN_WRONG_PLUGIN_PATH}, {.environment = {"WRONG_PLUGIN_EXITS=1"}});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_THAT(result.output,
              EndsWith("FAIL  leaves its process running: it ended with exit code 0\n"));
}

TEST(Check, CallsNoOperationOfATableThatIsNotWhole) {
  for (const auto& [entry, fact] : {std::pair("0", "no type information"),
                                    {"1", "slot 1 points outside the library"},
                                    {"9", "slot 9 points outside the library"}}) {
    const RunResult result = Tool({"check", TARN_WRONG_PLUGIN_PATH},
                                  {.environment = {std::string("WRONG_PLUGIN_LACKS=") + entry}});
    EXPECT_EQ(result.exit_code, kFailed);
    EXPECT_THAT(result.output, AllOf(HasSubstr(std::string("FAIL  dispatch table: ") + fact),
                                     Not(HasSubstr("MapErrorCode"))));
  }
}

// The plug-in's file with a section of the type `type` made over by `change`.
template <typename Change>
OwnedFd Crafted(Elf64_Word type, Change change) {
  const OwnedFd plugin(open(TARN_PLUGIN_PATH, O_RDONLY | O_CLOEXEC));
  std::string bytes = Content(plugin.Get());
  Elf64_Ehdr header;
  std::memcpy(&header, bytes.data(), sizeof header);
  std::vector<Elf64_Shdr> sections(header.e_shnum);
  char* const table = bytes.data() + header.e_shoff;
  std::memcpy(sections.data(), table, sections.size() * sizeof(Elf64_Shdr));
  for (Elf64_Shdr& section : sections) {
    if (section.sh_type == type) change(section, sections, bytes);
  }
  std::memcpy(table, sections.data(), sections.size() * sizeof(Elf64_Shdr));
  return ScratchFile(bytes);
}

// A file must decide neither where the reader looks nor what it costs.
TEST(Check, RefusesCraftedTables) {
  using Sections = std::vector<Elf64_Shdr>;
  const OwnedFd plugin(open(TARN_PLUGIN_PATH, O_RDONLY | O_CLOEXEC));
  const OwnedFd files[] = {
      // Cut within its header, and before its tables.
      ScratchFile(Content(plugin.Get()).substr(0, sizeof(Elf64_Ehdr) - 1)),
      ScratchFile(Content(plugin.Get()).substr(0, sizeof(Elf64_Ehdr))),
      Crafted(SHT_DYNSYM, [](Elf64_Shdr& it, Sections& all, auto&) { all.back() = it; }),
      Crafted(SHT_DYNAMIC, [](Elf64_Shdr& it, Sections& all, auto&) { all.back() = it; }),
      Crafted(SHT_DYNSYM, [](Elf64_Shdr& it, Sections&, auto&) { it.sh_size = ~0ULL; }),
      Crafted(SHT_DYNSYM, [](Elf64_Shdr& it, Sections&, auto&) { it.sh_offset = ~0ULL - 7; }),
      Crafted(SHT_DYNSYM, [](Elf64_Shdr& it, Sections&, auto&) { it.sh_link = 60'000; }),
      Crafted(SHT_DYNAMIC,
              [](Elf64_Shdr& it, Sections& all, auto&) { all[it.sh_link].sh_offset = ~0ULL; }),
      Crafted(SHT_DYNAMIC,
              [](Elf64_Shdr& it, Sections& all, auto&) { all[it.sh_link].sh_size = 1; }),
      Crafted(
          SHT_DYNAMIC,
          [](auto&, auto&, std::string& bytes) { bytes[offsetof(Elf64_Ehdr, e_type)] = ET_EXEC; }),
      // A name that never ends.
      Crafted(SHT_DYNAMIC, [](Elf64_Shdr& it, Sections& all, std::string& bytes) {
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(all[it.sh_link].sh_offset),
                    all[it.sh_link].sh_size, 'x');
      })};
  for (const OwnedFd& file : files) {
    const RunResult result = Tool({"check", "/dev/stdin"}, {.input_fd = file.Get()});
    EXPECT_EQ(result.exit_code, 2) << result.output;
    EXPECT_THAT(result.errors, AllOf(IsOneErrorLine(),
                                     ContainsRegex("damaged ELF file|not an ELF shared object\n")));
  }
}

// "secret" under algorithm 18 and a key of 64 "a".
constexpr const char* kEncipheredSecret = "ARKpKArXwyeRkWnhPSwZ731Enzj92C0WSmkm/PGeEuozFA==\n";

TEST(Encrypt, RefusesALongPasswordRatherThanCutIt) {
  const TemporaryFolder folder;
  const std::string key = folder.Write("some.key", std::string(64, 'a'));
  const std::string longest(1024, 'x');
  EXPECT_EQ(Tool({"encrypt", "--key", key}, {.input = longest + "\r\n"}).exit_code, 0);
  EXPECT_EQ(Tool({"encrypt", "--key", key}, {.input = longest + "y\n"}).exit_code, kTrouble);
}

TEST(Tool, TakesInputThatArrivesInPieces) {
  const TemporaryFolder folder;
  const std::string key = folder.Write("some.key", std::string(64, 'a'));
  struct Row {
    std::vector<std::string> arguments;
    std::vector<std::string> pieces;
    const char* output;
  };
  for (const auto& [arguments, pieces, output] :
       {Row{{"encrypt", "--algorithm=18", "--key", key},
            {"sec", "ret\r", "\nother\n"},
            kEncipheredSecret},
        Row{{"normalize"}, {"\xEF", "\xBB", "\xBF", "a"}, "a;\n"}}) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const OwnedFd read_end(ends[0]);
    OwnedFd write_end(ends[1]);
    std::vector<std::string> command = arguments;
    command.insert(command.begin(), TARN_HOST_PATH);
    RunningProgram tool(command, {.input_fd = read_end.Get()});
    for (const std::string& piece : pieces) {
      ASSERT_EQ(write(write_end.Get(), piece.data(), piece.size()), std::ssize(piece));
      // Taken before the next comes.
      int unread = 1;
      for (int round = 0; unread > 0 && round < 10'000; ++round) {
        usleep(1000);
        ASSERT_EQ(ioctl(read_end.Get(), FIONREAD, &unread), 0);
      }
      ASSERT_EQ(unread, 0);
    }
    write_end.Close();
    EXPECT_EQ(tool.Wait().output, output);
  }
}

// Wherever it is; and by exit, since a parent program does not see a shell's 130.
TEST(Interrupt, EndsTheToolByExit) {
  const TemporaryFolder folder;
  const std::string fifo = folder.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), S_IRWXU), 0);
  for (const char* command : {"normalize", "shapes"}) {
    RunningProgram tool({TARN_HOST_PATH, command, fifo});
    ASSERT_TRUE(tool.AwaitHandlerOf(SIGINT));
    tool.Signal(SIGINT);
    const RunResult result = tool.Wait();
    EXPECT_EQ(result.exit_code, 130) << command;
    EXPECT_FALSE(result.ended_by_signal) << command;
  }
}

// The first ends the input; the report then waits for a reader that does not come.
TEST(Interrupt, EndsTheReportAtTheSecondTime) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  const OwnedFd read_end(ends[0]);
  const OwnedFd write_end(ends[1]);
  const std::string block(4096, 'x');
  while (write(write_end.Get(), block.data(), block.size()) > 0) {
  }
  fcntl(write_end.Get(), F_SETFL, O_WRONLY);
  RunningProgram tool({TARN_HOST_PATH, "shapes"}, {.input = "a", .output_fd = write_end.Get()});
  ASSERT_TRUE(tool.AwaitHandlerOf(SIGINT));
  for (; tool.Running(); usleep(20'000)) tool.Signal(SIGINT);
  EXPECT_EQ(tool.Wait().exit_code, 130);
}

#ifdef TARN_FREED_SECRETS_PATH
// From standard input to the configuration and back: no block of memory is given back with the
// password in it.
TEST(Passwords, AreWipedBehindEveryCommand) {
  const TemporaryFolder folder;
  const std::string secret = "correct horse battery staple";
  RunOptions options{
      .input = secret + "\r\n",
      .environment = {"LD_PRELOAD=" TARN_FREED_SECRETS_PATH, "FREED_SECRET=" + secret,
                      "TARN_SYS_CONF=" + folder.Path("sys.json"),
                      "TARN_KEY_FILE=" + folder.Write("key", std::string(64, 'a'))}};
  std::string text = Tool({"encrypt"}, options).output;
  ASSERT_GT(text.size(), secret.size());
  text.pop_back();
  folder.Write("sys.json", R"({"databases": {"db": [{"type": "oracle", "user": "", "service": "",)"
                           R"( "password": ")" +
                               text + R"("}]}})");
  const RunResult result = Tool({"config", "db"}, options);
  EXPECT_EQ(result.exit_code, 0) << result.errors;
  EXPECT_EQ(Tool({"config", "db", "--show-password"}, options).exit_code, 99);
}
#endif

// `encrypt` on a terminal of its own.
class EncryptOnATerminal : public testing::Test {
 protected:
  EncryptOnATerminal() {
    grantpt(own_end_.Get());
    unlockpt(own_end_.Get());
  }

  RunningProgram Start() {
    const OwnedFd end(open(ptsname(own_end_.Get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    return RunningProgram({"/usr/bin/setsid", "--ctty", TARN_HOST_PATH, "encrypt", "--key",
                           folder_.Write("some.key", std::string(64, 'a')), "--algorithm=18"},
                          {.input_fd = end.Get()});
  }

  // Types `keys` once the program has asked and turned the echo off.
  void Answer(const std::string& keys) {
    std::string asked;
    while (asked.find("Password: ") == std::string::npos) {
      char block[256];
      const ssize_t got = read(own_end_.Get(), block, sizeof block);
      if (got <= 0) throw std::runtime_error("the program has gone after: " + asked);
      asked.append(block, static_cast<std::size_t>(got));
    }
    screen_ += asked;
    while (Echoes()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ASSERT_EQ(write(own_end_.Get(), keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  RunResult Enter(const std::string& password, const std::string& again) {
    RunningProgram tool = Start();
    Answer(password + '\n');
    Answer(again + '\n');
    return tool.Wait();
  }

  bool Echoes() const {
    termios settings{};
    tcgetattr(own_end_.Get(), &settings);
    return (settings.c_lflag & ECHO) != 0;
  }

  const TemporaryFolder folder_;
  const OwnedFd own_end_{posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)};
  std::string screen_;
};

TEST_F(EncryptOnATerminal, HidesThePasswordAndWantsItTwice) {
  const RunResult result = Enter("secret", "secret");
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.output, kEncipheredSecret);
  EXPECT_THAT(screen_, Not(HasSubstr("secret")));
}

TEST_F(EncryptOnATerminal, RefusesASlip) {
  const RunResult result = Enter("secret", "secert");
  EXPECT_EQ(result.exit_code, 2);
  EXPECT_THAT(result.errors, HasSubstr("tarn_host: encrypt:"));
}

TEST_F(EncryptOnATerminal, TurnsTheEchoOnWhenInterrupted) {
  RunningProgram tool = Start();
  Answer("\x03");
  // Between turning the echo off and reading, the library only takes note of the signal.
  const std::jthread again([this](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      if (write(own_end_.Get(), "\x03", 1) != 1) return;
    }
  });
  EXPECT_EQ(tool.Wait().exit_code, 130);
  EXPECT_TRUE(Echoes());
}

}  // namespace
}  // namespace tarn::test

// tarn_host config, encrypt and keygen as a person runs them, on the stand-in platform.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "support/run_program.h"
#include "support/surroundings.h"
#include "support/table.h"

namespace {

using nlohmann::json;
using tarn::test::NamedRow;
using tarn::test::RowName;
using tarn::test::RunOptions;
using tarn::test::RunProgram;
using tarn::test::RunResult;
using tarn::test::TemporaryFolder;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Values;

const std::string kDigits(64, 'a');

// A folder with a key, and the tool run in it without any variable of ours set but those given.
class Place {
 public:
  Place() { folder_.Write("some.key", kDigits + '\n'); }

  const TemporaryFolder& Folder() const { return folder_; }

  RunResult Tool(std::vector<std::string> arguments, RunOptions options = {}) const {
    arguments.insert(arguments.begin(), TARN_HOST_PATH);
    options.folder = folder_.Path("");
    return RunProgram(arguments, options);
  }

  std::string Enciphered(const std::string& password, const std::string& algorithm = "19") const {
    const RunResult result =
        Tool({"encrypt", "--key", "some.key", "--algorithm", algorithm}, {.input = password});
    EXPECT_EQ(result.exit_code, 0) << result.errors;
    EXPECT_THAT(result.output, Not(HasSubstr(password)));
    return result.output.substr(0, result.output.find('\n'));
  }

  // What `config` says of the database "db" that has these settings.
  RunResult Config(const json& settings, const std::vector<std::string>& options) const {
    folder_.Write("sys.json", json{{"databases", {{"db", {settings}}}}}.dump());
    folder_.Write("app.json", R"({"sslmode": "required"})");
    std::vector<std::string> arguments{"config", "db"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return Tool(arguments, {.environment = {"TARN_SYS_CONF=sys.json", "TARN_KEY_FILE=some.key",
                                            "APP_CONF_FILE=app.json", "TARN_PROC_ID=4071",
                                            "TARN_PROC_HANDLE=70000", "TARN_LOG_LEVEL=warn"}});
  }

 private:
  TemporaryFolder folder_;
};

TEST(Config, PrintsWhatThePlugInAnswers) {
  const Place place;
  const json settings{{"type", "mysql"},
                      {"user", "app"},
                      {"password", place.Enciphered("top secret")},
                      {"host", "10.0.0.5"},
                      {"port", 12345}};
  RunResult result = place.Config(settings, {});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.output,
            "type           mysql\n"
            "user           app\n"
            "password       ********\n"
            "address        10.0.0.5:12345\n"
            "SSLMODE        2\n"
            "defaultDBName  nesvc_v8ptnDB_4464\n");
  EXPECT_THAT(result.errors, Not(HasSubstr("top secret")));

  result = place.Config(settings, {"--show-password", "--json"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(json::parse(result.output),
            (json{{"database", "db"},
                  {"type", "mysql"},
                  {"user", "app"},
                  {"password", "top secret"},
                  {"address", "10.0.0.5:12345"},
                  {"properties", {{"defaultDBName", "nesvc_v8ptnDB_4464"}, {"SSLMODE", "2"}}}}));
  EXPECT_THAT(result.errors, Not(HasSubstr("top secret")));
  EXPECT_THAT(place.Config(settings, {"--json"}).output, Not(HasSubstr("top secret")));
}

struct PasswordRow : NamedRow {
  std::string password;
  std::string algorithm;
};

class PasswordRoad : public testing::TestWithParam<PasswordRow> {};

// From a person's standard input through the configuration to what the host is given.
TEST_P(PasswordRoad, EndsWhereItBegan) {
  const Place place;
  const json settings{{"type", "tundra"},
                      {"user", "app"},
                      {"password", place.Enciphered(GetParam().password, GetParam().algorithm)}};
  const RunResult result = place.Config(settings, {"--show-password", "--json"});
  const json answers = json::parse(result.output);
  EXPECT_EQ(answers["password"], GetParam().password);
  // This engine's login is the database's name.
  EXPECT_EQ(answers["user"], "db");
}

INSTANTIATE_TEST_SUITE_P(Table, PasswordRoad,
                         Values(PasswordRow{{"Gcm"}, "secret", "19"},
                                PasswordRow{{"GcmByName"}, "secret", "aes-256-gcm"},
                                PasswordRow{{"Ecb"}, "secret", "18"},
                                PasswordRow{{"EcbByName"}, "secret", "aes-128-ecb"},
                                PasswordRow{{"OneBlock"}, "sixteen bytes ab", "18"},
                                PasswordRow{{"Blanks"}, "  with \"blanks\" and \t", "19"},
                                PasswordRow{{"NotAscii"}, "\xc3\xa9\xe2\x82\xac", "18"},
                                PasswordRow{{"Longest"}, std::string(1024, 'x'), "19"}),
                         RowName<PasswordRow>);

TEST(Config, OtherBytesThanUtf8AndOddTextsStayReadable) {
  const Place place;
  json settings{{"type", "line\nbreak \x1b[2J"}, {"service", ""}};
  settings["user"] = "app";
  settings["password"] = place.Enciphered("\xff\xfe");
  EXPECT_THAT(place.Config(settings, {}).output,
              HasSubstr("type           line\\nbreak \\x1B[2J\n"));
  const RunResult result = place.Config(settings, {"--json", "--show-password"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(json::parse(result.output)["password"], "\xef\xbf\xbd\xef\xbf\xbd");
}

TEST(Config, UnreadableSettingsAreEmptyAndInTheLog) {
  const Place place;
  const RunResult result =
      place.Config({{"type", "mysql"}, {"user", "app"}, {"password", "bm90IG91cnM="}}, {});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_THAT(result.output, HasSubstr("password\naddress        :0\n"));
  EXPECT_THAT(result.errors, HasSubstr("the enciphered password is damaged"));
  EXPECT_THAT(result.errors, HasSubstr("ERROR 709 getproductinterface"));
  EXPECT_THAT(result.errors, HasSubstr("\"host\" is missing"));
}

TEST(Encrypt, TakesTheFirstLineOnly) {
  const Place place;
  EXPECT_THAT(
      place.Tool({"encrypt", "--key", "some.key"}, {.input = std::string(1025, 'x')}).errors,
      HasSubstr("longer than 1024"));
  const std::string text = place.Enciphered("first\nsecond\n", "18");
  EXPECT_EQ(text, place.Enciphered("first", "18"));
  EXPECT_NE(text, place.Enciphered("second", "18"));
}

TEST(Keygen, MakesAKeyThatEncryptTakes) {
  const Place place;
  RunResult result = place.Tool({"keygen", "new.key"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.output + result.errors, "");
  result = place.Tool({"encrypt", "--key", "new.key"}, {.input = "pw\n"});
  EXPECT_EQ(result.exit_code, 0) << result.errors;
}

// A program on a terminal of its own, which is killed with the object at the latest.
class TerminalProgram {
 public:
  explicit TerminalProgram(std::vector<std::string> command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& argument : command) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    pid_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (pid_ == 0) {
      execv(arguments[0], arguments.data());
      _exit(127);
    }
  }
  TerminalProgram(const TerminalProgram&) = delete;
  TerminalProgram& operator=(const TerminalProgram&) = delete;
  ~TerminalProgram() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(terminal_);
  }

  // Types `keys` once the program has shown `prompt` again and turned the echo off.
  void TypeAfter(const std::string& prompt, const std::string& keys) {
    const std::size_t from = screen_.size();
    while (screen_.find(prompt, from) == std::string::npos) ASSERT_TRUE(ReadSome());
    while (Echoes()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ASSERT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  bool Echoes() const {
    termios settings{};
    tcgetattr(terminal_, &settings);
    return (settings.c_lflag & ECHO) != 0;
  }

  // The exit code, or 128 plus the signal's number.
  int Wait() {
    while (ReadSome()) {
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  const std::string& Screen() const { return screen_; }

 private:
  // False when the program has gone.
  bool ReadSome() {
    char block[256];
    const ssize_t got = read(terminal_, block, sizeof block);
    if (got > 0) screen_.append(block, static_cast<std::size_t>(got));
    return got > 0;
  }

  int terminal_ = -1;
  pid_t pid_ = -1;
  std::string screen_;
};

TEST(EncryptOnATerminal, HidesThePasswordAndWantsItTwice) {
  const Place place;
  const std::string key = place.Folder().Path("some.key");
  const std::vector<std::string> command{TARN_HOST_PATH, "encrypt", "--key", key, "--algorithm=18"};

  TerminalProgram good(command);
  good.TypeAfter("Password: ", "secret\n");
  good.TypeAfter("Password: ", "secret\n");
  EXPECT_EQ(good.Wait(), 0);
  EXPECT_THAT(good.Screen(), Not(HasSubstr("secret")));
  EXPECT_THAT(good.Screen(), HasSubstr(place.Enciphered("secret", "18")));

  TerminalProgram slip(command);
  slip.TypeAfter("Password: ", "secret\n");
  slip.TypeAfter("Password: ", "secert\n");
  EXPECT_EQ(slip.Wait(), 2);
  EXPECT_THAT(slip.Screen(), HasSubstr("tarn_host: encrypt:"));

  TerminalProgram interrupted(command);
  interrupted.TypeAfter("Password: ", "\x03");
  EXPECT_EQ(interrupted.Wait(), 130);
  EXPECT_TRUE(interrupted.Echoes());
}

TEST(SampleConfiguration, WorksOnceItsPasswordsAreEnciphered) {
  const Place place;
  const std::string examples = TARN_EXAMPLES;
  const auto make = [&](const std::string& key, const std::string& sample) {
    return RunProgram({examples + "/make_sys_conf.sh", TARN_HOST_PATH, key, sample, "sys.json"},
                      {.folder = place.Folder().Path("")});
  };
  // Twice: the key of the first time is used again.
  for (int i = 0; i < 2; ++i) {
    const RunResult made = make("run.key", examples + "/sys_conf.json");
    ASSERT_EQ(made.exit_code, 0) << made.errors;
  }
  struct Expected {
    const char* database;
    const char* user;
    const char* password;
    const char* address;
  };
  for (const Expected& expected :
       {Expected{"orders", "orders_app", "orders-secret", "10.0.0.5:3306"},
        Expected{"metrics", "metrics", "metrics-secret", "metrics.example:2345"},
        Expected{"archive", "archive_app", "archive-secret", "ARCHIVE_SERVICE"}}) {
    const RunResult result =
        place.Tool({"config", expected.database, "--json", "--show-password"},
                   {.environment = {"TARN_SYS_CONF=sys.json", "TARN_KEY_FILE=run.key",
                                    "APP_CONF_FILE=" + examples + "/app_conf.json"}});
    const json answers = json::parse(result.output);
    EXPECT_EQ(answers["user"], expected.user);
    EXPECT_EQ(answers["password"], expected.password);
    EXPECT_EQ(answers["address"], expected.address);
    EXPECT_EQ(answers["properties"]["SSLMODE"], "2");
  }

  // A failure leaves the configuration of before, and nothing unfinished.
  const std::string bad = place.Folder().Write("bad.json", R"("password": "encipher-20:x")");
  EXPECT_NE(make("run.key", bad).exit_code, 0);
  EXPECT_NE(make("run.key", "none.json").exit_code, 0);
  std::ifstream stream(place.Folder().Path("sys.json"));
  EXPECT_THAT(std::string(std::istreambuf_iterator<char>(stream), {}), HasSubstr("orders_app"));
  EXPECT_FALSE(std::filesystem::exists(place.Folder().Path("sys.json.new")));
}

}  // namespace

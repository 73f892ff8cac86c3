// What tarn_host's keygen, encrypt and config do beyond a row of cases/tool.txt.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/surroundings.h"
#include "support/tool.h"

namespace tarn::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(Keygen, MakesAKeyThatEncryptTakes) {
  const TemporaryFolder folder;
  const std::string key = folder.Path("new.key");
  RunResult result = Tool({"keygen", key});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.output + result.errors, "");
  result = Tool({"encrypt", "--key", key}, {.input = "pw\n"});
  EXPECT_EQ(result.exit_code, 0) << result.errors;
  // Refused, not cut.
  result = Tool({"encrypt", "--key", key}, {.input = std::string(1025, 'x')});
  EXPECT_THAT(result.errors, HasSubstr("longer than 1024"));
}

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
  RunningProgram tool = Start();
  Answer("secret\n");
  Answer("secret\n");
  const RunResult result = tool.Wait();
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.output, "ARKpKArXwyeRkWnhPSwZ731Enzj92C0WSmkm/PGeEuozFA==\n");
  EXPECT_THAT(screen_, Not(HasSubstr("secret")));
}

TEST_F(EncryptOnATerminal, RefusesASlip) {
  RunningProgram tool = Start();
  Answer("secret\n");
  Answer("secert\n");
  const RunResult result = tool.Wait();
  EXPECT_EQ(result.exit_code, 2);
  EXPECT_THAT(result.errors, HasSubstr("tarn_host: encrypt:"));
}

TEST_F(EncryptOnATerminal, TurnsTheEchoOnWhenInterrupted) {
  RunningProgram tool = Start();
  Answer("\x03");
  EXPECT_EQ(tool.Wait().exit_code, 130);
  EXPECT_TRUE(Echoes());
}

}  // namespace
}  // namespace tarn::test

// The SSL mode from a configuration file: what the search accepts, to the byte, and what becomes of
// files that are none.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "dbconfig/ssl_mode.h"
#include "platform/c_value.h"
#include "support/case_file.h"
#include "support/recording_platform.h"
#include "support/surroundings.h"

namespace tarn::test {
namespace {

using dbconfig::FindSSLMode;
using testing::ElementsAre;
using testing::IsEmpty;

class SSLModeSearch : public testing::TestWithParam<CaseRow> {};

TEST_P(SSLModeSearch, FindsTheMode) {
  EXPECT_EQ(FindSSLMode(GetParam().texts.at(0)).value_or(""), GetParam().texts.at(1));
}

INSTANTIATE_TEST_SUITE_P(Cases, SSLModeSearch, testing::ValuesIn(ReadCases("ssl_mode.txt")),
                         CaseName);

class SSLModeFile : public testing::Test {
 protected:
  SSLModeFile() { ResetPlatform(); }

  std::string File() const { return folder_.Path("app.json"); }

  // The code that the host gets, with the warnings on the way left as the platform's only calls.
  static std::string Mode() {
    std::map<std::string, refl::CValue> properties;
    EXPECT_TRUE(Product().GetDBConnectProperties(properties));
    std::erase_if(Platform().calls, [](const std::string& call) {
      return call.find(":getSSLMode:") == std::string::npos;
    });
    return properties["SSLMODE"].ToString();
  }

  const TemporaryFolder folder_;
  const ScopedVariable variable_{"APP_CONF_FILE", File()};
};

constexpr const char* kNoFileNamed =
    "Warn([tarn_interface_for_vesta] getSSLmdoe error : APP_CONF_FILE = NULL, "
    "getproductinterface.cpp:getSSLMode:62)";
constexpr const char* kNotOpened =
    "Warn([tarn_interface_for_vesta] Fail to read sslmode, open file error, "
    "getproductinterface.cpp:getSSLMode:69)";
constexpr const char* kNothingFound =
    "Warn([tarn_interface_for_vesta] Fail to read ssl in config file, "
    "getproductinterface.cpp:getSSLMode:122)";

TEST_F(SSLModeFile, IsReadAfreshOnEveryCall) {
  for (const auto& [content, mode] : {std::pair(R"({"sslmode": "required"})", "2"),
                                      std::pair(R"({"sslmode": "disabled"})", "0")}) {
    folder_.Write("app.json", content);
    EXPECT_EQ(Mode(), mode);
    EXPECT_THAT(Platform().calls, IsEmpty());
  }
}

TEST_F(SSLModeFile, MissingOrEmptyLeavesTheDefaultAndAWarning) {
  const std::string empty = folder_.Write("empty.json", "");
  const std::string neither = folder_.Write("neither.json", R"({"sslmode": "preferred"})");
  // A folder opens, but can't be read.
  for (const auto& [path, warning] : std::initializer_list<std::pair<const char*, const char*>>{
           {nullptr, kNoFileNamed},
           {File().c_str(), kNotOpened},
           {"", kNotOpened},
           {"/", kNothingFound},
           {empty.c_str(), kNothingFound},
           {neither.c_str(), kNothingFound}}) {
    const ScopedVariable variable("APP_CONF_FILE", path);
    Platform().calls.clear();
    EXPECT_EQ(Mode(), "1");
    EXPECT_THAT(Platform().calls, ElementsAre(warning));
  }
}

TEST_F(SSLModeFile, UnreadableFile) {
  folder_.Write("app.json", R"({"sslmode": "required"})");
  ASSERT_EQ(chmod(File().c_str(), 0), 0);
  // Permissions don't stop the superuser.
  constexpr uid_t kNobody = 65534;
  const uid_t user = geteuid();
  if (user == 0) {
    ASSERT_EQ(seteuid(kNobody), 0);
  }
  const std::string mode = Mode();
  ASSERT_EQ(seteuid(user), 0);
  EXPECT_EQ(mode, "1");
  EXPECT_THAT(Platform().calls, ElementsAre(kNotOpened));
}

// The keys on either side of where one buffer of the file ends.
TEST_F(SSLModeFile, SettingAcrossBuffers) {
  constexpr std::size_t kAroundBuffer = 8192;
  for (std::size_t lead = kAroundBuffer - 24; lead <= kAroundBuffer; ++lead) {
    folder_.Write("app.json", std::string(lead, ' ') + R"("sslmode": "required")");
    EXPECT_EQ(Mode(), "2") << lead;
  }
}

// 100 MB, of which most is a hole in the file.
TEST_F(SSLModeFile, Huge) {
  constexpr off_t kSize = 100'000'000;
  folder_.Write("app.json", R"({"sslmode": "preferred")");
  ASSERT_EQ(truncate(File().c_str(), kSize), 0);
  EXPECT_EQ(Mode(), "1");
  EXPECT_THAT(Platform().calls, ElementsAre(kNothingFound));
  std::ofstream(File(), std::ios::app) << R"("ssl": true)";
  EXPECT_EQ(Mode(), "2");
}

}  // namespace
}  // namespace tarn::test

// The SSL mode from a configuration file: what the search accepts, to the byte, and what becomes of
// files that are none.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "dbconfig/ssl_mode.h"
#include "platform/c_value.h"
#include "support/recording_platform.h"
#include "support/table.h"

namespace {

using tarn::dbconfig::FindSSLMode;
using tarn::test::Platform;
using tarn::test::ResetPlatform;
using tarn::test::RowName;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_view_literals;

constexpr const char* kFileVariable = "APP_CONF_FILE";

struct Content : tarn::test::NamedRow {
  std::string_view content;
  // "" for none.
  std::string_view mode;
};

class SSLModeSearch : public testing::TestWithParam<Content> {};

TEST_P(SSLModeSearch, FindsTheMode) {
  EXPECT_EQ(FindSSLMode(GetParam().content).value_or(""), GetParam().mode);
}

const Content kModeKey[] = {
    {{"disabled"}, R"({"sslmode": "disabled"})", "0"},
    {{"required"}, R"({"sslmode":"required"})", "2"},
    {{"five_characters_between"}, R"({"sslmode" :   "required"})", "2"},
    {{"six_characters_between"}, R"({"sslmode" :    "required"})", ""},
    {{"five_before_disabled"}, R"("sslmode":    "disabled")", "0"},
    {{"six_before_disabled"}, R"("sslmode":     "disabled")", ""},
    {{"any_bytes_between"}, "\"sslmode\"\0\n\xFFxy\"disabled\""sv, "0"},
    {{"nothing_between"}, R"("sslmode""disabled")", "0"},
    // The key's closing quote is the value's opening one.
    {{"shared_quote"}, R"("sslmode"disabled")", "0"},
    {{"value_before_key"}, R"("disabled""sslmode")", ""},
    {{"at_the_end_of_content"}, R"("sslmode"     "required")", "2"},
    {{"cut_short"}, R"("sslmode"     "required)", ""},
    {{"key_ends_the_content"}, R"("sslmode")", ""},
    {{"both_values_disabled_first"}, R"("sslmode""disabled""required")", "0"},
    {{"required_nearer_than_disabled"}, R"("sslmode""required""disabled")", "2"},
    {{"other_key_letter_case"}, R"({"SSLMODE": "disabled"})", ""},
    {{"other_value_letter_case"}, R"({"sslmode": "DISABLED"})", ""},
    {{"key_without_quotes"}, R"({sslmode: "disabled"})", ""},
    {{"value_without_quotes"}, R"({"sslmode": disabled})", ""},
    {{"unknown_value"}, R"({"sslmode": "preferred"})", ""},
    {{"only_first_key_counts"}, R"({"sslmode": "preferred", "sslmode": "required"})", ""},
    {{"in_a_comment"}, R"(// "sslmode": "disabled")", "0"},
    {{"after_nul"}, "\0{\"sslmode\": \"disabled\"}"sv, "0"},
};
INSTANTIATE_TEST_SUITE_P(ModeKey, SSLModeSearch, testing::ValuesIn(kModeKey), RowName<Content>);

const Content kBooleanKey[] = {
    {{"true_after_blank"}, R"({"ssl": true})", "2"},
    {{"false_at_once"}, R"({"ssl":false})", "0"},
    {{"quoted_true"}, R"({"ssl": "true"})", "2"},
    {{"quoted_false"}, R"({"ssl": "false"})", "0"},
    {{"blank_before_colon"}, R"({"ssl" :true})", "2"},
    {{"three_characters_before_true"}, R"("ssl" : true)", "2"},
    {{"four_characters_before_true"}, R"({"ssl" :  true})", ""},
    {{"three_characters_before_false"}, R"("ssl":  false)", "0"},
    {{"four_characters_before_false"}, R"("ssl":   false)", ""},
    {{"nothing_between"}, R"("ssl"true)", "2"},
    {{"longer_word"}, R"("ssl": falsehood)", "0"},
    {{"within_a_word"}, R"("ssl":untrue)", "2"},
    {{"cut_short"}, R"("ssl": tru)", ""},
    {{"word_before_key"}, R"(true"ssl")", ""},
    {{"number"}, R"({"ssl": 1})", ""},
    {{"other_letter_case"}, R"({"ssl": True})", ""},
    {{"key_without_quotes"}, R"({ssl: true})", ""},
    {{"only_first_key_counts"}, R"({"ssl": 1, "ssl": true})", ""},
    {{"no_content"}, "", ""},
};
INSTANTIATE_TEST_SUITE_P(BooleanKey, SSLModeSearch, testing::ValuesIn(kBooleanKey),
                         RowName<Content>);

const Content kBothKeys[] = {
    {{"mode_wins"}, R"({"sslmode": "disabled", "ssl": true})", "0"},
    {{"mode_wins_from_behind"}, R"({"ssl": false, "sslmode": "required"})", "2"},
    {{"unknown_mode_leaves_it_to_true"}, R"({"sslmode": "verify-full", "ssl": true})", "2"},
    {{"unknown_mode_leaves_it_to_false"}, R"({"sslmode": "preferred", "ssl": false})", "0"},
    {{"boolean_key_before_unknown_mode"}, R"({"ssl": true, "sslmode": "preferred"})", "2"},
};
INSTANTIATE_TEST_SUITE_P(BothKeys, SSLModeSearch, testing::ValuesIn(kBothKeys), RowName<Content>);

class SSLModeFile : public testing::Test {
 protected:
  SSLModeFile() {
    ResetPlatform();
    std::string pattern = testing::TempDir() + "ssl_mode_XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary directory");
    directory_ = pattern;
    setenv(kFileVariable, File().c_str(), 1);
  }
  SSLModeFile(const SSLModeFile&) = delete;
  SSLModeFile& operator=(const SSLModeFile&) = delete;
  ~SSLModeFile() override {
    unsetenv(kFileVariable);
    std::filesystem::remove_all(directory_);
  }

  std::string File() const { return directory_ / "app.json"; }

  void Write(std::string_view content) const { std::ofstream(File()) << content; }

  // The code that the host gets, with the warnings on the way left as the platform's only calls.
  static std::string Mode() {
    std::map<std::string, refl::CValue> properties;
    EXPECT_TRUE(GetProductInterfaceForVESTA()->GetDBConnectProperties(properties));
    std::erase_if(Platform().calls, [](const std::string& call) {
      return call.find(":getSSLMode:") == std::string::npos;
    });
    return properties["SSLMODE"].ToString();
  }

  std::filesystem::path directory_;
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
    Write(content);
    EXPECT_EQ(Mode(), mode);
    EXPECT_THAT(Platform().calls, IsEmpty());
  }
}

TEST_F(SSLModeFile, UnsetVariable) {
  unsetenv(kFileVariable);
  EXPECT_EQ(Mode(), "1");
  EXPECT_THAT(Platform().calls, ElementsAre(kNoFileNamed));
}

TEST_F(SSLModeFile, NoSuchFile) {
  EXPECT_EQ(Mode(), "1");
  EXPECT_THAT(Platform().calls, ElementsAre(kNotOpened));
}

TEST_F(SSLModeFile, EmptyPath) {
  setenv(kFileVariable, "", 1);
  EXPECT_EQ(Mode(), "1");
  EXPECT_THAT(Platform().calls, ElementsAre(kNotOpened));
}

TEST_F(SSLModeFile, UnreadableFile) {
  Write(R"({"sslmode": "required"})");
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

// Opens, but can't be read.
TEST_F(SSLModeFile, Directory) {
  setenv(kFileVariable, directory_.c_str(), 1);
  EXPECT_EQ(Mode(), "1");
  EXPECT_THAT(Platform().calls, ElementsAre(kNothingFound));
}

TEST_F(SSLModeFile, EmptyFile) {
  Write("");
  EXPECT_EQ(Mode(), "1");
  EXPECT_THAT(Platform().calls, ElementsAre(kNothingFound));
}

TEST_F(SSLModeFile, WithoutEitherSetting) {
  Write(R"({"sslmode": "preferred"})");
  EXPECT_EQ(Mode(), "1");
  EXPECT_THAT(Platform().calls, ElementsAre(kNothingFound));
}

// The keys on either side of where one buffer of the file ends.
TEST_F(SSLModeFile, SettingAcrossBuffers) {
  constexpr std::size_t kAroundBuffer = 8192;
  for (std::size_t lead = kAroundBuffer - 24; lead <= kAroundBuffer; ++lead) {
    Write(std::string(lead, ' ') + R"("sslmode": "required")");
    EXPECT_EQ(Mode(), "2") << lead;
  }
}

// 100 MB, of which most is a hole in the file.
TEST_F(SSLModeFile, Huge) {
  constexpr off_t kSize = 100'000'000;
  Write(R"({"sslmode": "preferred")");
  ASSERT_EQ(truncate(File().c_str(), kSize), 0);
  EXPECT_EQ(Mode(), "1");
  EXPECT_THAT(Platform().calls, ElementsAre(kNothingFound));
  std::ofstream(File(), std::ios::app) << R"("ssl": true)";
  EXPECT_EQ(Mode(), "2");
}

}  // namespace

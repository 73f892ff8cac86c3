// The stand-in of the product platform: log, system configuration, process and reflection.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/c_value.h"
#include "platform/log_process.h"
#include "platform/quill_process.h"
#include "platform/sys_conf_reader.h"
#include "support/case_file.h"
#include "support/surroundings.h"

namespace tarn::test {
namespace {

using Quillcommon::SysConfReader;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

const LocationInfo kHere("file.cpp", "Function", 7);

auto Lines(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

TEST(Log, WritesOneLineARecord) {
  const std::string error = "ERROR 666667 file.cpp:7 Function: ";
  const std::string warn = "WARN - file.cpp:7 Function: m\n";
  struct Row {
    const char* level;
    const char* message;
    std::string expected;
  };
  for (const Row& row : {Row{nullptr, "m", error + "m\n" + warn},
                         {"off", "m", ""},
                         {"error", "m", error + "m\n"},
                         {"debug", "m", error + "m\n" + warn + "DEBUG - file.cpp:7 Function: m\n"},
                         {"error", nullptr, error + "(null)\n"},
                         {"error", "a\nb\x1b[2J\x7f%s\xc3\xa9\xff",
                          error + "a\\x0ab\\x1b[2J\\x7f%s\xc3\xa9\xff\n"}}) {
    const ScopedVariable level("TARN_LOG_LEVEL", row.level);
    const StandardError log;
    errno = EDOM;
    LogProcess::Error(666667, row.message, kHere);
    LogProcess::Warn(row.message, kHere);
    LogProcess::Debug(row.message, kHere);
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(log.Text(), row.expected);
  }
}

TEST(LogLevel, UnknownWordIsNamedOnce) {
  const ScopedVariable level("TARN_LOG_LEVEL", "WARN");
  const StandardError log;
  LogProcess::Debug("hidden", kHere);
  LogProcess::Warn("shown", kHere);
  EXPECT_THAT(log.Text(), AllOf(HasSubstr("TARN_LOG_LEVEL: \"WARN\""), EndsWith("shown\n")));
  EXPECT_EQ(Lines(log.Text()), 2);
}

TEST(LogThreads, LinesStayWhole) {
  constexpr int kThreads = 4;
  constexpr int kRecords = 200;
  // Longer than what the system writes to a pipe in one piece.
  constexpr std::size_t kLength = 10000;
  const StandardError log;
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([i] {
        const std::string message(kLength, static_cast<char>('a' + i));
        for (int record = 0; record < kRecords; ++record) LogProcess::Warn(message.c_str(), kHere);
      });
    }
  }
  std::istringstream lines(log.Text());
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    ASSERT_EQ(line, "WARN - file.cpp:7 Function: " + std::string(kLength, line.back()));
  }
  EXPECT_EQ(count, kThreads * kRecords);
}

SysConfReader& Reader() { return SysConfReader::Instance(); }

class SysConf : public testing::TestWithParam<CaseRow> {};

TEST_P(SysConf, GivesTheSettingOrOneWarning) {
  const std::map<std::string, std::string (SysConfReader::*)(const std::string&, unsigned int)>
      getters{{"type", &SysConfReader::getDBType},
              {"user", &SysConfReader::getDBUserName},
              {"password", &SysConfReader::getDBPassword},
              {"host", &SysConfReader::getDBAccessHost},
              {"service", &SysConfReader::getDBServiceName}};
  std::istringstream words(GetParam().label);
  std::string id;
  std::string setting;
  unsigned int index = 0;
  std::string database;
  words >> id >> setting >> index >> database;
  database = Unescaped(database);
  const std::vector<std::string>& texts = GetParam().texts;
  const TemporaryFolder folder;
  const ScopedVariable file("TARN_SYS_CONF", folder.Write("sys.json", texts.at(0)));
  const StandardError log;
  EXPECT_EQ(setting == "port" ? std::to_string(Reader().getDBAccessPort(database, index))
                              : (Reader().*getters.at(setting))(database, index),
            texts.at(1));
  const std::string text = log.Text();
  EXPECT_THAT(text, AllOf(HasSubstr(texts.at(2)), Not(HasSubstr("secret"))));
  EXPECT_EQ(Lines(text), texts[2].empty() ? 0 : 1) << text;
}

INSTANTIATE_TEST_SUITE_P(Cases, SysConf, testing::ValuesIn(ReadCases("sys_conf.txt")), CaseName);

TEST(SysConfFile, MustBeNamedAndReadable) {
  const TemporaryFolder folder;
  const std::string none = folder.Path("none");
  constexpr std::size_t kLimit = 1U << 20U;
  const std::string deep = folder.Write("deep.json", std::string(kLimit, '['));
  const std::string large = folder.Write("large.json", std::string(kLimit + 1, ' '));
  for (const auto& [path, warning] :
       {std::pair<const char*, const char*>(nullptr, "TARN_SYS_CONF names no"),
        {"", "TARN_SYS_CONF names no"},
        {none.c_str(), "none: No such file"},
        {"/", ": Is a directory"},
        {"/dev/zero", "/dev/zero: "},
        {large.c_str(), ": larger than 1 MiB"},
        {deep.c_str(), ": not valid JSON"}}) {
    const ScopedVariable file("TARN_SYS_CONF", path);
    const StandardError log;
    EXPECT_EQ(Reader().getDBType("db", 0), "");
    EXPECT_THAT(log.Text(), HasSubstr(warning));
  }
}

TEST(SysConfFile, IsReadAgainWhenItChanges) {
  namespace fs = std::filesystem;
  const TemporaryFolder folder;
  const auto write = [&](const char* name, const std::string& host) {
    return folder.Write(name, R"({"databases": {"db": [{"host": ")" + host + "\"}]}}");
  };
  const auto host = [] { return Reader().getDBAccessHost("db", 0); };
  const ScopedVariable file("TARN_SYS_CONF", folder.Path("sys.json"));
  for (int i = 1; i < 3; ++i) {
    write("sys.json", std::to_string(i));
    ASSERT_EQ(host(), std::to_string(i));
  }
  fs::remove(folder.Path("sys.json"));
  EXPECT_EQ(host(), "");
  const ScopedVariable other("TARN_SYS_CONF", write("other.json", "three"));
  EXPECT_EQ(host(), "three");
}

TEST(ProcessNumber, ComesFromTheEnvironmentOrTheProcess) {
  struct Row {
    const char* value;
    std::optional<unsigned int> number;
  };
  for (const auto& [variable, get, fallback] :
       {std::tuple("TARN_PROC_ID", &QuillGetProcId, static_cast<unsigned int>(getpid())),
        std::tuple("TARN_PROC_HANDLE", &QuillGetProcHandle, 0U)}) {
    for (const Row& row : {Row{nullptr, fallback},
                           {"4071", 4071},
                           {"4294967295", 4294967295U},
                           {"4294967296", {}},
                           {"-1", {}},
                           {"", {}},
                           {"12a", {}}}) {
      const ScopedVariable scoped(variable, row.value);
      const StandardError log;
      EXPECT_EQ(get(), row.number.value_or(fallback));
      EXPECT_EQ(Lines(log.Text()), row.number ? 0 : 1) << log.Text();
    }
  }
}

// The rest of it is seen in what the plug-in leaves in a host's properties.
TEST(Value, IsCopiedWholeAndEmptiedByAnotherType) {
  refl::CValue value;
  EXPECT_EQ(value.GetDataType(), refl::Enum::DATA_TYPE_NONE);
  const std::string text("a\0b", 3);
  value.ReadFrom(text);
  refl::CValue copy(value);
  value.ReadFrom("other");
  EXPECT_EQ(copy.ToString(), text);
  copy = *&copy;
  value = std::move(copy);
  value.ChangeValueTypeEnum(refl::Enum::DATA_TYPE_STRING);
  EXPECT_EQ(value.ToString(), text);
  value.ChangeValueTypeEnum(static_cast<refl::Enum::DataTypeEnum>(7));
  EXPECT_EQ(value.ToString(), "");
}

}  // namespace
}  // namespace tarn::test

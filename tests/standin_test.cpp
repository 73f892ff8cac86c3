// The stand-in of the product platform: log, system configuration, process and reflection.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/c_value.h"
#include "platform/log_process.h"
#include "platform/quill_process.h"
#include "platform/sys_conf_reader.h"
#include "support/case_file.h"
#include "support/surroundings.h"
#include "support/table.h"

namespace {

using Quillcommon::SysConfReader;
using tarn::test::NamedRow;
using tarn::test::ReadCases;
using tarn::test::RowName;
using tarn::test::ScopedVariable;
using tarn::test::StandardError;
using tarn::test::TemporaryFolder;
using ::testing::HasSubstr;
using ::testing::Values;

const LocationInfo kHere("file.cpp", "Function", 7);

// What the records of one message at each level come to under a value of TARN_LOG_LEVEL.
struct LogRow : NamedRow {
  const char* level;
  const char* message;
  std::string expected;
};

class Log : public testing::TestWithParam<LogRow> {};

TEST_P(Log, WritesOneLineARecord) {
  const ScopedVariable level("TARN_LOG_LEVEL", GetParam().level);
  const StandardError log;
  errno = EDOM;
  LogProcess::Error(666667, GetParam().message, kHere);
  LogProcess::Warn(GetParam().message, kHere);
  LogProcess::Debug(GetParam().message, kHere);
  EXPECT_EQ(errno, EDOM);
  EXPECT_EQ(log.Text(), GetParam().expected);
}

const std::string kError = "ERROR 666667 file.cpp:7 Function: ";
const std::string kWarn = "WARN - file.cpp:7 Function: ";
const std::string kDebug = "DEBUG - file.cpp:7 Function: ";
const LogRow kLogRows[] = {
    {{"Unset"}, nullptr, "m", kError + "m\n" + kWarn + "m\n"},
    {{"Off"}, "off", "m", ""},
    {{"Error"}, "error", "m", kError + "m\n"},
    {{"Debug"}, "debug", "m", kError + "m\n" + kWarn + "m\n" + kDebug + "m\n"},
    {{"Null"}, "error", nullptr, kError + "(null)\n"},
    {{"Empty"}, "error", "", kError + "\n"},
    {{"Controls"},
     "error",
     "a\nb\r\x1b[2J\x7f\t%s\xc3\xa9\xff",
     kError + "a\\x0ab\\x0d\\x1b[2J\\x7f\\x09%s\xc3\xa9\xff\n"},
};
INSTANTIATE_TEST_SUITE_P(Table, Log, testing::ValuesIn(kLogRows), RowName<LogRow>);

TEST(LogLevel, UnknownWordIsNamedOnce) {
  const ScopedVariable level("TARN_LOG_LEVEL", "WARN");
  const StandardError log;
  LogProcess::Debug("hidden", kHere);
  LogProcess::Warn("shown", kHere);
  std::istringstream lines(log.Text());
  std::string line;
  std::getline(lines, line);
  EXPECT_THAT(line, HasSubstr("TARN_LOG_LEVEL: \"WARN\""));
  std::getline(lines, line);
  EXPECT_THAT(line, HasSubstr("shown"));
  EXPECT_FALSE(std::getline(lines, line));
}

TEST(LogThreads, LinesStayWhole) {
  constexpr int kThreads = 4;
  constexpr int kRecords = 200;
  // Longer than what the system writes to a pipe in one piece.
  constexpr std::size_t kLength = 10000;
  const StandardError log;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([i] {
      const std::string message(kLength, static_cast<char>('a' + i));
      for (int record = 0; record < kRecords; ++record) LogProcess::Warn(message.c_str(), kHere);
    });
  }
  for (std::thread& thread : threads) thread.join();

  std::istringstream lines(log.Text());
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    ASSERT_EQ(line.size(), kWarn.size() + kLength);
    ASSERT_EQ(line, kWarn + std::string(kLength, line.back()));
  }
  EXPECT_EQ(count, kThreads * kRecords);
}

SysConfReader& Reader() { return SysConfReader::Instance(); }

class SysConf : public testing::TestWithParam<tarn::test::CaseRow> {};

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
  database = tarn::test::Unescaped(database);
  const std::vector<std::string>& texts = GetParam().texts;
  const TemporaryFolder folder;
  const ScopedVariable file("TARN_SYS_CONF", folder.Write("sys.json", texts.at(0)));
  const StandardError log;
  EXPECT_EQ(setting == "port" ? std::to_string(Reader().getDBAccessPort(database, index))
                              : (Reader().*getters.at(setting))(database, index),
            texts.at(1));
  const std::string text = log.Text();
  EXPECT_THAT(text, HasSubstr(texts.at(2)));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), texts[2].empty() ? 0 : 1) << text;
}

std::string Entry(const std::string& settings) {
  return R"({"databases": {"db": [)" + settings + "]}}";
}

std::string Type() { return Reader().getDBType("db", 0); }
std::string Host() { return Reader().getDBAccessHost("db", 0); }

INSTANTIATE_TEST_SUITE_P(Cases, SysConf, testing::ValuesIn(ReadCases("sys_conf.txt")),
                         tarn::test::CaseName);

TEST(SysConfFile, MustBeNamedAndReadable) {
  const TemporaryFolder folder;
  const auto warning_for = [](const char* path) {
    const ScopedVariable file("TARN_SYS_CONF", path);
    const StandardError log;
    EXPECT_EQ(Type(), "");
    return log.Text();
  };
  EXPECT_THAT(warning_for(nullptr), HasSubstr("TARN_SYS_CONF names no"));
  EXPECT_THAT(warning_for(""), HasSubstr("TARN_SYS_CONF names no"));
  EXPECT_THAT(warning_for(folder.Path("none").c_str()), HasSubstr("none: No such file"));
  EXPECT_THAT(warning_for(folder.Path("").c_str()), HasSubstr(": Is a directory"));
  EXPECT_THAT(warning_for("/dev/zero"), HasSubstr("/dev/zero: "));
  EXPECT_THAT(warning_for(folder.Write("deep.json", std::string(200000, '[')).c_str()),
              HasSubstr(": not valid JSON"));
}

// Also a change right after a look, of equal length, which no time stamp may betray.
TEST(SysConfFile, IsReadAgainWhenItChanges) {
  const TemporaryFolder folder;
  const ScopedVariable file("TARN_SYS_CONF", folder.Path("sys.json"));
  const StandardError log;
  for (int i = 0; i < 50; ++i) {
    const std::string host = std::to_string(100 + i);
    folder.Write("sys.json", Entry(R"({"host": ")" + host + "\"}"));
    ASSERT_EQ(Host(), host);
  }
  EXPECT_EQ(log.Text(), "");
  folder.Write("sys.json", "{");
  EXPECT_EQ(Host(), "");
  std::filesystem::remove(folder.Path("sys.json"));
  EXPECT_EQ(Host(), "");

  // An old file is kept in memory, until another takes its place.
  namespace fs = std::filesystem;
  const auto put_old = [&](const std::string& host) {
    const fs::path next = folder.Write("next.json", Entry(R"({"host": ")" + host + "\"}"));
    fs::last_write_time(next, fs::file_time_type::clock::now() - std::chrono::hours(1));
    fs::rename(next, folder.Path("sys.json"));
  };
  put_old("one");
  EXPECT_EQ(Host(), "one");
  put_old("two");
  EXPECT_EQ(Host(), "two");

  const ScopedVariable other("TARN_SYS_CONF",
                             folder.Write("other.json", Entry(R"({"host": "three"})")));
  EXPECT_EQ(Host(), "three");
}

TEST(SysConfThreads, SeeOneWholeConfigurationOrTheOther) {
  constexpr int kThreads = 3;
  constexpr int kReplacements = 200;
  const TemporaryFolder folder;
  const auto put = [&](const std::string& host) {
    const std::string next = folder.Write("next.json", Entry(R"({"host": ")" + host + "\"}"));
    std::filesystem::rename(next, folder.Path("sys.json"));
  };
  put("left");
  const ScopedVariable file("TARN_SYS_CONF", folder.Path("sys.json"));
  const StandardError log;
  std::atomic<bool> done{false};
  std::atomic<int> strange{0};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      while (!done) {
        const std::string host = Host();
        if (host != "left" && host != "right") ++strange;
      }
    });
  }
  for (int i = 0; i < kReplacements; ++i) put(i % 2 == 0 ? "right" : "left");
  done = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(strange, 0);
  EXPECT_EQ(log.Text(), "");
}

struct ProcessRow : NamedRow {
  const char* value;
  unsigned int number;
  bool fallback;
};

class ProcessNumber : public testing::TestWithParam<ProcessRow> {};

TEST_P(ProcessNumber, ComesFromTheEnvironmentOrTheProcess) {
  const ProcessRow& row = GetParam();
  struct Source {
    const char* variable;
    unsigned int (*get)();
    unsigned int fallback;
  };
  for (const auto& [variable, get, fallback] :
       {Source{"TARN_PROC_ID", QuillGetProcId, static_cast<unsigned int>(getpid())},
        Source{"TARN_PROC_HANDLE", QuillGetProcHandle, 0}}) {
    const ScopedVariable scoped(variable, row.value);
    const StandardError log;
    EXPECT_EQ(get(), row.fallback ? fallback : row.number);
    const bool warns = row.fallback && row.value != nullptr;
    const std::string text = log.Text();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), warns ? 1 : 0);
    if (warns) {
      EXPECT_THAT(text, HasSubstr(std::string(variable) + ": \"" + row.value + "\" is no"));
      EXPECT_THAT(text, HasSubstr("; " + std::to_string(fallback) + " is used"));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, ProcessNumber,
    Values(ProcessRow{{"Unset"}, nullptr, 0, true}, ProcessRow{{"Zero"}, "0", 0, false},
           ProcessRow{{"Identity"}, "4071", 4071, false},
           ProcessRow{{"Highest"}, "4294967295", 4294967295U, false},
           ProcessRow{{"TooHigh"}, "4294967296", 0, true}, ProcessRow{{"Negative"}, "-1", 0, true},
           ProcessRow{{"Empty"}, "", 0, true}, ProcessRow{{"Blank"}, " 1", 0, true},
           ProcessRow{{"Hexadecimal"}, "0x10", 0, true}, ProcessRow{{"Trailing"}, "12a", 0, true}),
    RowName<ProcessRow>);

TEST(Value, KeepsTypeAndTextThroughCopiesAndMoves) {
  refl::CValue value;
  EXPECT_EQ(value.GetDataType(), refl::Enum::DATA_TYPE_NONE);
  EXPECT_EQ(value.ToString(), "");
  const std::string text("a\0b", 3);
  value.ReadFrom(text);
  value.ChangeValueTypeEnum(refl::Enum::DATA_TYPE_STRING);
  EXPECT_EQ(value.ToString(), text);

  refl::CValue copy(value);
  value.ReadFrom("other");
  EXPECT_EQ(copy.ToString(), text);
  copy = *&copy;
  EXPECT_EQ(copy.ToString(), text);
  value = std::move(copy);
  EXPECT_EQ(value.ToString(), text);

  constexpr auto kOtherType = static_cast<refl::Enum::DataTypeEnum>(7);
  value.ChangeValueTypeEnum(kOtherType);
  EXPECT_EQ(value.GetDataType(), kOtherType);
  EXPECT_EQ(value.ToString(), "");
  value.ReadFrom("again");
  EXPECT_EQ(value.GetDataType(), refl::Enum::DATA_TYPE_STRING);
  value.ChangeValueTypeEnum(refl::Enum::DATA_TYPE_NONE);
  EXPECT_EQ(value.ToString(), "");
}

}  // namespace

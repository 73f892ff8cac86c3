// A platform for the test program that includes this file in its one source. The plug-in's objects
// are linked to it instead of the product platform. It returns the test's answers, records the
// sequence of all calls and can throw at any one of them. It also sees the plug-in's getenv. It has
// only the functions that the plug-in calls.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/c_value.h"
#include "platform/log_process.h"
#include "platform/quill_aes_cipher.h"
#include "platform/quill_process.h"
#include "platform/sys_conf_reader.h"

namespace tarn::test {

// The exception of the platform.
class PlatformError : public std::exception {};

// The answers and the record of calls. Not synchronised.
struct RecordingPlatform {
  // The settings by name, the same for every database. "user" is the result of an operation's first
  // reading, "later" that of every other. A deciphering ("preferred", "fallback") is its result, a
  // blank, and the text by which it replaces the plain-text output.
  std::map<std::string, std::string, std::less<>> answers;

  // Every call in order, as "function(arguments)". Log calls end with the location's
  // "function:line", and decryptEx shows its plain-text argument before the call. A getter of
  // a reader that was not fetched for it begins with "stale ". If the outputs have changed before a
  // call, "-> " and their description come before it.
  std::vector<std::string> calls;
  // Describes the operation's outputs, if the test sets it.
  std::function<std::string()> outputs = [] { return std::string(); };
  // That description before each call that may throw.
  std::vector<std::string> states;
  // If false, the platform allocates nothing of its own.
  bool recording = true;
  // Number of the call, counted from 1, that throws PlatformError; 0 for none. decryptEx throws
  // after it has written its output. getenv neither counts nor throws.
  std::size_t throw_at = 0;
  std::size_t call_count = 0;
  int user_readings = 0;

  // The number of LocationInfo objects that exist.
  int live_records = 0;
  // The reader that the last Instance() returned, until a getter is called on it.
  const Quillcommon::SysConfReader* fetched = nullptr;
  // The last log call's message, as the pointer that was passed.
  const char* last_message = nullptr;
  // The address of the bytes of the output string after the last decryptEx.
  const char* plain_bytes = nullptr;

  // Forgets the calls, but not the answers.
  void StartAgain() {
    calls.clear();
    states.clear();
    call_count = 0;
    user_readings = 0;
    last_look_ = outputs();
  }

  void Note(std::string_view call) {
    if (!recording) return;
    const std::string look = outputs();
    if (std::exchange(last_look_, look) != look) calls.push_back("-> " + look);
    calls.emplace_back(call);
  }

  // Counts a call that may throw. Calls `describe` for its text only if calls are recorded; a call
  // without a text is not.
  template <typename Describe>
  void Enter(Describe describe) {
    if (recording) {
      if (const std::string call = describe(); !call.empty()) Note(call);
      states.push_back(outputs());
    }
    if (++call_count == throw_at) throw PlatformError();
  }

  void EnterLog(const char* begin, const char* message, const LocationInfo& location,
                const unsigned int* code = nullptr) {
    last_message = message;
    EXPECT_STREQ(location.File(), "getproductinterface.cpp");
    Enter([&] {
      return begin + (code == nullptr ? "" : std::to_string(*code) + ", ") +
             (message == nullptr ? "(null)" : message) + ", " + location.Function() + ":" +
             std::to_string(location.Line()) + ")";
    });
  }

  const std::string& Get(const Quillcommon::SysConfReader* reader, const char* function,
                         const std::string& dbName, unsigned int index, std::string_view name) {
    const bool stale = std::exchange(fetched, nullptr) != reader;
    Enter([&] {
      return (stale ? "stale " : "") + std::string(function) + "(" + dbName + ", " +
             std::to_string(index) + ")";
    });
    return answers.find(name)->second;
  }

  unsigned int Number(std::string_view name) const {
    return static_cast<unsigned int>(std::stoll(answers.find(name)->second));
  }

 private:
  std::string last_look_;
};

// The platform of this process.
inline RecordingPlatform& Platform() {
  static RecordingPlatform platform;
  return platform;
}

}  // namespace tarn::test

using tarn::test::Platform;

LocationInfo::LocationInfo(const char* file, const char* function, int line)
    : file_(file), function_(function), line_(line) {
  ++Platform().live_records;
}
LocationInfo::~LocationInfo() { --Platform().live_records; }

void LogProcess::Error(unsigned int code, const char* message, const LocationInfo& location) {
  Platform().EnterLog("Error(", message, location, &code);
}
void LogProcess::Warn(const char* message, const LocationInfo& location) {
  Platform().EnterLog("Warn(", message, location);
}
void LogProcess::Debug(const char* message, const LocationInfo& location) {
  Platform().EnterLog("Debug(", message, location);
}

namespace Quillcommon {

SysConfReader& SysConfReader::Instance() {
  Platform().Enter([] { return ""; });
  // Alternates two readers, so that a kept reader differs from the one just fetched.
  static SysConfReader readers[2];
  static unsigned int count = 0;
  SysConfReader& next = readers[++count % 2];
  Platform().fetched = &next;
  return next;
}

std::string SysConfReader::getDBType(const std::string& dbName, unsigned int index) {
  return Platform().Get(this, "getDBType", dbName, index, "type");
}
std::string SysConfReader::getDBUserName(const std::string& dbName, unsigned int index) {
  const bool first = ++Platform().user_readings == 1;
  return Platform().Get(this, "getDBUserName", dbName, index, first ? "user" : "later");
}
std::string SysConfReader::getDBPassword(const std::string& dbName, unsigned int index) {
  return Platform().Get(this, "getDBPassword", dbName, index, "password");
}
std::string SysConfReader::getDBAccessHost(const std::string& dbName, unsigned int index) {
  return Platform().Get(this, "getDBAccessHost", dbName, index, "host");
}
std::string SysConfReader::getDBServiceName(const std::string& dbName, unsigned int index) {
  return Platform().Get(this, "getDBServiceName", dbName, index, "service");
}
int SysConfReader::getDBAccessPort(const std::string& dbName, unsigned int index) {
  return std::stoi(Platform().Get(this, "getDBAccessPort", dbName, index, "port"));
}

}  // namespace Quillcommon

unsigned int QuillAESCipher::decryptEx(const std::string& cipherText, std::string& plainText,
                                       unsigned int algorithm) {
  const std::string before = Platform().recording ? plainText : std::string();
  const char* const name = algorithm == ALGID_AES128_ECB ? "fallback" : "preferred";
  const std::string& answer = Platform().answers.find(name)->second;
  plainText.assign(answer, answer.find(' ') + 1);
  Platform().plain_bytes = plainText.data();
  Platform().Enter([&] {
    return "decryptEx(" + cipherText + ", " + before + ", " + std::to_string(algorithm) + ")";
  });
  return Platform().Number(name);
}

unsigned int QuillGetProcId() {
  Platform().Enter([] { return "QuillGetProcId()"; });
  return Platform().Number("process");
}
unsigned int QuillGetProcHandle() {
  Platform().Enter([] { return "QuillGetProcHandle()"; });
  return Platform().Number("handle");
}

namespace refl {

struct CValue::Content {
  std::string text;
};

CValue::CValue() {
  Platform().Enter([] { return "CValue()"; });
}
CValue::CValue(const CValue& other)
    : content_(other.content_ ? std::make_unique<Content>(*other.content_) : nullptr) {}
CValue::~CValue() = default;

void CValue::ReadFrom(const std::string& text) {
  Platform().Enter([&] { return "ReadFrom(" + text + ")"; });
  content_ = std::make_unique<Content>(Content{text});
}
std::string CValue::ToString() const { return content_ ? content_->text : std::string(); }

}  // namespace refl

// Found by the plug-in's objects before the C library's.
extern "C" char* getenv(const char* name) noexcept {
  if (std::string_view(name) == "APP_CONF_FILE") Platform().Note("getenv(APP_CONF_FILE)");
  // The same as getenv, unless the program runs as another user than the one who started it.
  return secure_getenv(name);
}

#include "support/recording_platform.h"

#include <string>

#include "platform/log_process.h"
#include "platform/quill_aes_cipher.h"
#include "platform/quill_process.h"
#include "platform/sys_conf_reader.h"

namespace tarn::test {
namespace {

// `describe` makes the call's text, only where it is kept.
template <typename Describe>
void Enter(Describe describe) {
  RecordingPlatform& platform = Platform();
  if (platform.recording) platform.calls.push_back(describe());
  if (++platform.call_count == platform.throw_at) throw PlatformError("told to throw");
}

std::string Text(const char* message) { return message == nullptr ? "(null)" : message; }

std::string Place(const LocationInfo& location) {
  return std::string(location.File()) + ":" + location.Function() + ":" +
         std::to_string(location.Line());
}

void EnterGetter(const char* name, const std::string& dbName, unsigned int index) {
  Enter([&] { return std::string(name) + "(" + dbName + ", " + std::to_string(index) + ")"; });
}

}  // namespace

RecordingPlatform& Platform() {
  static RecordingPlatform platform;
  return platform;
}

RecordingPlatform& ResetPlatform() { return Platform() = RecordingPlatform(); }

}  // namespace tarn::test

using tarn::test::Enter;
using tarn::test::EnterGetter;
using tarn::test::Place;
using tarn::test::Platform;
using tarn::test::Text;

LocationInfo::LocationInfo(const char* file, const char* function, int line)
    : file_(file), function_(function), line_(line) {}
LocationInfo::~LocationInfo() = default;

void LogProcess::Error(unsigned int code, const char* message, const LocationInfo& location) {
  Platform().last_message = message;
  Enter([&] {
    return "Error(" + std::to_string(code) + ", " + Text(message) + ", " + Place(location) + ")";
  });
}

void LogProcess::Warn(const char* message, const LocationInfo& location) {
  Platform().last_message = message;
  Enter([&] { return "Warn(" + Text(message) + ", " + Place(location) + ")"; });
}

void LogProcess::Debug(const char* message, const LocationInfo& location) {
  Platform().last_message = message;
  Enter([&] { return "Debug(" + Text(message) + ", " + Place(location) + ")"; });
}

namespace Quillcommon {

SysConfReader& SysConfReader::Instance() {
  Enter([] { return "Instance()"; });
  static SysConfReader reader;
  return reader;
}

std::string SysConfReader::getDBType(const std::string& dbName, unsigned int index) {
  EnterGetter("getDBType", dbName, index);
  return Platform().type;
}

std::string SysConfReader::getDBUserName(const std::string& dbName, unsigned int index) {
  // The first reading of an account is the platform's second call.
  constexpr int kFirstReading = 2;
  EnterGetter("getDBUserName", dbName, index);
  const bool first = Platform().call_count == kFirstReading || Platform().later_user.empty();
  return first ? Platform().user : Platform().later_user;
}

std::string SysConfReader::getDBPassword(const std::string& dbName, unsigned int index) {
  EnterGetter("getDBPassword", dbName, index);
  return Platform().password;
}

std::string SysConfReader::getDBAccessHost(const std::string& dbName, unsigned int index) {
  EnterGetter("getDBAccessHost", dbName, index);
  return Platform().host;
}

std::string SysConfReader::getDBServiceName(const std::string& dbName, unsigned int index) {
  EnterGetter("getDBServiceName", dbName, index);
  return Platform().service;
}

int SysConfReader::getDBAccessPort(const std::string& dbName, unsigned int index) {
  EnterGetter("getDBAccessPort", dbName, index);
  return Platform().port;
}

}  // namespace Quillcommon

unsigned int QuillAESCipher::decryptEx(const std::string& cipherText, std::string& plainText,
                                       unsigned int algorithm) {
  const std::string before = Platform().recording ? plainText : std::string();
  const tarn::test::Deciphering& deciphering =
      algorithm == ALGID_PREFERRED ? Platform().preferred : Platform().fallback;
  plainText = deciphering.plain;
  Platform().plain_bytes = plainText.data();
  Enter([&] {
    return "decryptEx(" + cipherText + ", " + before + ", " + std::to_string(algorithm) + ")";
  });
  return deciphering.result;
}

unsigned int QuillGetProcId() {
  Enter([] { return "QuillGetProcId()"; });
  return Platform().process_id;
}

unsigned int QuillGetProcHandle() {
  Enter([] { return "QuillGetProcHandle()"; });
  return Platform().process_handle;
}

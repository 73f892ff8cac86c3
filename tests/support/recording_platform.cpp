#include "support/recording_platform.h"

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/c_value.h"
#include "platform/log_process.h"
#include "platform/quill_aes_cipher.h"
#include "platform/quill_process.h"

namespace tarn::test {
namespace {

// Counts a call, and throws if it must. Calls `describe` for the call's text only if calls are
// recorded.
template <typename Describe>
void Enter(Describe describe) {
  RecordingPlatform& platform = Platform();
  if (platform.recording) {
    platform.Note(describe());
    platform.states.push_back(platform.outputs());
  }
  if (++platform.call_count == platform.throw_at) throw PlatformError("told to throw");
}

void EnterLog(const char* begin, const char* message, const LocationInfo& location,
              std::optional<unsigned int> code = {}) {
  Platform().last_message = message;
  Enter([&] {
    return begin + (code ? std::to_string(*code) + ", " : "") +
           (message == nullptr ? "(null)" : message) + ", " + location.File() + ":" +
           location.Function() + ":" + std::to_string(location.Line()) + ")";
  });
}

template <typename Value>
Value Get(const Quillcommon::SysConfReader* reader, const char* name, const std::string& dbName,
          unsigned int index, const Value& answer) {
  const bool stale = std::exchange(Platform().fetched, nullptr) != reader;
  Enter([&] {
    return (stale ? "stale " : "") + std::string(name) + "(" + dbName + ", " +
           std::to_string(index) + ")";
  });
  return answer;
}

}  // namespace

void RecordingPlatform::StartAgain() {
  calls.clear();
  states.clear();
  call_count = user_readings = 0;
  fetched = nullptr;
  plain_bytes = nullptr;
  last_look_ = outputs();
}

void RecordingPlatform::Note(const std::string& call) {
  const std::string look = outputs();
  if (std::exchange(last_look_, look) != look) calls.push_back("-> " + look);
  calls.push_back(call);
}

RecordingPlatform& Platform() {
  static RecordingPlatform platform;
  return platform;
}

RecordingPlatform& ResetPlatform() { return Platform() = RecordingPlatform(); }

}  // namespace tarn::test

using tarn::test::Enter;
using tarn::test::EnterLog;
using tarn::test::Get;
using tarn::test::kLaterUser;
using tarn::test::Platform;

LocationInfo::LocationInfo(const char* file, const char* function, int line)
    : file_(file), function_(function), line_(line) {
  ++Platform().live_records;
}
LocationInfo::~LocationInfo() { --Platform().live_records; }

void LogProcess::Error(unsigned int code, const char* message, const LocationInfo& location) {
  EnterLog("Error(", message, location, code);
}

void LogProcess::Warn(const char* message, const LocationInfo& location) {
  EnterLog("Warn(", message, location);
}

void LogProcess::Debug(const char* message, const LocationInfo& location) {
  EnterLog("Debug(", message, location);
}

namespace Quillcommon {

SysConfReader& SysConfReader::Instance() {
  Enter([] { return "Instance()"; });
  // Alternates two readers, so that a kept reader differs from the one just fetched.
  static SysConfReader readers[2];
  static unsigned int count = 0;
  SysConfReader& next = readers[++count % 2];
  Platform().fetched = &next;
  return next;
}

std::string SysConfReader::getDBType(const std::string& dbName, unsigned int index) {
  return Get(this, "getDBType", dbName, index, Platform().type);
}
std::string SysConfReader::getDBUserName(const std::string& dbName, unsigned int index) {
  const std::string& user = ++Platform().user_readings == 1 ? Platform().user : kLaterUser;
  return Get(this, "getDBUserName", dbName, index, user);
}
std::string SysConfReader::getDBPassword(const std::string& dbName, unsigned int index) {
  return Get(this, "getDBPassword", dbName, index, Platform().password);
}
std::string SysConfReader::getDBAccessHost(const std::string& dbName, unsigned int index) {
  return Get(this, "getDBAccessHost", dbName, index, Platform().host);
}
std::string SysConfReader::getDBServiceName(const std::string& dbName, unsigned int index) {
  return Get(this, "getDBServiceName", dbName, index, Platform().service);
}
int SysConfReader::getDBAccessPort(const std::string& dbName, unsigned int index) {
  return Get(this, "getDBAccessPort", dbName, index, Platform().port);
}

}  // namespace Quillcommon

unsigned int QuillAESCipher::decryptEx(const std::string& cipherText, std::string& plainText,
                                       unsigned int algorithm) {
  const std::string before = Platform().recording ? plainText : std::string();
  const tarn::test::Deciphering& deciphering =
      algorithm == ALGID_AES128_ECB ? Platform().fallback : Platform().preferred;
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

namespace refl {

struct CValue::Content {
  Enum::DataTypeEnum type;
  std::string text;
};

CValue::CValue() {
  Enter([] { return "CValue()"; });
}
CValue::CValue(const CValue& other)
    : content_(other.content_ ? std::make_unique<Content>(*other.content_) : nullptr) {}
CValue::CValue(CValue&& other) noexcept = default;
CValue& CValue::operator=(const CValue& other) { return *this = CValue(other); }
CValue& CValue::operator=(CValue&& other) noexcept = default;
CValue::~CValue() = default;

void CValue::ReadFrom(const std::string& text) {
  Enter([&] { return "ReadFrom(" + text + ")"; });
  content_ = std::make_unique<Content>(Content{Enum::DATA_TYPE_STRING, text});
}

void CValue::ChangeValueTypeEnum(Enum::DataTypeEnum type) {
  content_ = std::make_unique<Content>(Content{type, {}});
}

Enum::DataTypeEnum CValue::GetDataType() const noexcept {
  return content_ ? content_->type : Enum::DATA_TYPE_NONE;
}

std::string CValue::ToString() const { return content_ ? content_->text : std::string(); }

}  // namespace refl

// Found by the plug-in's objects before the C library's.
extern "C" char* getenv(const char* name) noexcept {
  const bool noted = Platform().recording && std::string_view(name) == "APP_CONF_FILE";
  if (noted) Platform().Note("getenv(APP_CONF_FILE)");
  // The same as getenv, unless the program runs as another user than the one who started it.
  return secure_getenv(name);
}

#include "other_platform.h"

#include <cstdio>

namespace {

int alive = 0;

int Write(const char* level, unsigned long code, const std::string& message,
          const LocationInfo& location) {
  return std::printf("%s %lu %s %s (%d)\n", level, code, location.where.c_str(), message.c_str(),
                     alive);
}

}  // namespace

LocationInfo::LocationInfo(const char* file, const char* function, long line)
    : where(std::string(file) + ":" + std::to_string(line) + " " + function) {
  ++alive;
}
LocationInfo::~LocationInfo() { --alive; }

int LogProcess::Error(unsigned long code, const std::string& message,
                      const LocationInfo& location) {
  return Write("error", code, message, location);
}
int LogProcess::Warn(const std::string& message, const LocationInfo& location) {
  return Write("warn", 0, message, location);
}
int LogProcess::Debug(const std::string& message, const LocationInfo& location) {
  return Write("debug", 0, message, location);
}

// Refuses one algorithm, so that the plug-in tries the other.
int QuillAESCipher::decryptEx(const std::string& cipherText, std::string& plainText,
                              unsigned int algorithm) {
  if (algorithm != ALGID_AES128_ECB) return -static_cast<int>(algorithm);
  plainText.assign(cipherText.rbegin(), cipherText.rend());
  return 0;
}

long long QuillGetProcId() { return 0x1'0000'0000'0000 + 4071; }
short QuillGetProcHandle() { return -1; }

int Quillcommon::SysConfReader::getDBAccessPort(const std::string&, unsigned int) const {
  return 5005;
}
std::string Quillcommon::SysConfReader::getDBServiceName(const std::string& dbName,
                                                         unsigned int) const {
  return "service of " + dbName;
}

refl::CValue::CValue() = default;
refl::CValue::~CValue() = default;
refl::CValue& refl::CValue::ReadFrom(const std::string& text) {
  text_ = text;
  return *this;
}

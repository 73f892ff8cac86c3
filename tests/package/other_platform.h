// A platform with the same calls as include/platform, and no more than the plug-in needs. It
// differs in everything that source code does not see: sizes, members, inline functions and symbol
// names. The compiler's command line may choose other result types. The file is also the platform's
// source.
#ifndef OTHER_PLATFORM_H
#define OTHER_PLATFORM_H

#include <cstdio>
#include <string>

#ifndef DECIPHER_RESULT
#define DECIPHER_RESULT int
#define PROCESS_RESULT long long
#endif

struct LocationInfo {
  LocationInfo(const char* file, const char* function, long line);
  LocationInfo(const LocationInfo&) = delete;
  LocationInfo& operator=(const LocationInfo&) = delete;
  virtual ~LocationInfo();

  std::string where;
  char reserved[80] = {};
};

namespace LogProcess {
int Error(unsigned long code, const std::string& text, const LocationInfo& location);
int Warn(const std::string& text, const LocationInfo& location);
int Debug(const std::string& text, const LocationInfo& location);
}  // namespace LogProcess

const int ALGID_AES128_ECB = 18;

struct QuillAESCipher {
  static DECIPHER_RESULT decryptEx(const std::string& cipherText, std::string& plainText,
                                   unsigned int algorithm);
};

extern "C" PROCESS_RESULT QuillGetProcId();
extern "C" PROCESS_RESULT QuillGetProcHandle();

namespace Quillcommon {

struct SysConfReader {
  static const SysConfReader& Instance() {
    static const SysConfReader reader;
    return reader;
  }
  virtual ~SysConfReader() = default;
  virtual int getDBAccessPort(const std::string&, unsigned int) const { return 5005; }
  std::string getDBType(const std::string& dbName, unsigned int) const { return types + dbName; }
  std::string getDBUserName(const std::string& dbName, unsigned int) const { return dbName + "_u"; }
  std::string getDBPassword(const std::string&, unsigned int) const { return "terces"; }
  std::string getDBAccessHost(const std::string&, unsigned int) const { return "db.example"; }
  std::string getDBServiceName(const std::string& dbName, unsigned int) const;

  std::string types;
};

}  // namespace Quillcommon

namespace refl {

class CValue {
 public:
  virtual ~CValue() = default;
  virtual CValue& ReadFrom(const std::string& text);
  // For the host: the plug-in does not read values.
  const std::string& ToString() const { return text_; }

 private:
  char reserved_[200] = {};
  std::string text_;
};

}  // namespace refl

#ifdef BUILD_PLATFORM

static int alive = 0;

LocationInfo::LocationInfo(const char* file, const char* function, long line)
    : where(std::string(file) + ":" + std::to_string(line) + " " + function) {
  ++alive;
}
LocationInfo::~LocationInfo() { --alive; }

static int Write(const char* level, const std::string& text, const LocationInfo& location) {
  return std::printf("%s %s %s (%d)\n", level, location.where.c_str(), text.c_str(), alive);
}
int LogProcess::Error(unsigned long code, const std::string& text, const LocationInfo& location) {
  return Write(("error " + std::to_string(code)).c_str(), text, location);
}
int LogProcess::Warn(const std::string& text, const LocationInfo& location) {
  return Write("warn", text, location);
}
int LogProcess::Debug(const std::string& text, const LocationInfo& location) {
  return Write("debug", text, location);
}

// Refuses one algorithm, so that the plug-in tries the other.
int QuillAESCipher::decryptEx(const std::string& cipherText, std::string& plainText,
                              unsigned int algorithm) {
  if (algorithm != ALGID_AES128_ECB) return -static_cast<int>(algorithm);
  plainText.assign(cipherText.rbegin(), cipherText.rend());
  return 0;
}

long long QuillGetProcId() { return 0x1'0000'0000'0000 + 4071; }
long long QuillGetProcHandle() { return -1; }

std::string Quillcommon::SysConfReader::getDBServiceName(const std::string& dbName,
                                                         unsigned int) const {
  return "service of " + dbName;
}

refl::CValue& refl::CValue::ReadFrom(const std::string& text) {
  text_ = text;
  return *this;
}

#endif
#endif

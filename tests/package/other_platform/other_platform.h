// A platform with the same calls as include/platform. It differs in everything that source code
// does not see: sizes, members, inline functions and symbol names.
#pragma once

#include <string>

class LocationInfo {
 public:
  LocationInfo(const char* file, const char* function, long line);
  LocationInfo(const LocationInfo&) = delete;
  LocationInfo& operator=(const LocationInfo&) = delete;
  virtual ~LocationInfo();

  std::string where;
  char reserved[80] = {};
};

class LogProcess {
 public:
  static int Error(unsigned long code, const std::string& message, const LocationInfo& location);
  static int Warn(const std::string& message, const LocationInfo& location);
  static int Debug(const std::string& message, const LocationInfo& location);
};

#define ALGID_AES128_ECB 18

class QuillAESCipher {
 public:
  static int decryptEx(const std::string& cipherText, std::string& plainText,
                       unsigned int algorithm);
};

extern "C" long long QuillGetProcId();
extern "C" short QuillGetProcHandle();

namespace Quillcommon {

class SysConfReader {
 public:
  static SysConfReader& Instance() {
    static SysConfReader reader;
    return reader;
  }
  virtual ~SysConfReader() = default;
  virtual int getDBAccessPort(const std::string& dbName, unsigned int index) const;
  std::string getDBType(const std::string& dbName, unsigned int) const { return types + dbName; }
  std::string getDBUserName(const std::string& dbName, unsigned int) const { return dbName + "_u"; }
  std::string getDBPassword(const std::string&, unsigned int) const { return "terces"; }
  std::string getDBAccessHost(const std::string&, unsigned int) const { return "db.example"; }
  std::string getDBServiceName(const std::string& dbName, unsigned int) const;

 private:
  std::string types;
};

}  // namespace Quillcommon

namespace refl {

class CValue {
 public:
  CValue();
  virtual ~CValue();
  virtual CValue& ReadFrom(const std::string& text);
  const std::string& ToString() const { return text_; }

 private:
  char reserved_[200] = {};
  std::string text_;
};

}  // namespace refl

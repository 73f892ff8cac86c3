// A platform that declares only the parts that the plug-in uses. The compiler's command line
// defines DECIPHER_RESULT and PROCESS_RESULT, the result types that a platform may choose.
#pragma once

#include <string>

class LocationInfo {
 public:
  LocationInfo(const char* file, const char* function, int line);
  ~LocationInfo();
};

namespace LogProcess {
void Error(unsigned int code, const char* message, const LocationInfo& location);
void Warn(const char* message, const LocationInfo& location);
void Debug(const char* message, const LocationInfo& location);
}  // namespace LogProcess

const int ALGID_AES128_ECB = 18;

namespace QuillAESCipher {
DECIPHER_RESULT decryptEx(const std::string& cipherText, std::string& plainText,
                          unsigned int algorithm);
}

PROCESS_RESULT QuillGetProcId();
PROCESS_RESULT QuillGetProcHandle();

namespace Quillcommon {

class SysConfReader {
 public:
  static const SysConfReader& Instance();
  std::string getDBType(const std::string& dbName, unsigned int index) const;
  std::string getDBUserName(const std::string& dbName, unsigned int index) const;
  std::string getDBPassword(const std::string& dbName, unsigned int index) const;
  std::string getDBAccessHost(const std::string& dbName, unsigned int index) const;
  std::string getDBServiceName(const std::string& dbName, unsigned int index) const;
  int getDBAccessPort(const std::string& dbName, unsigned int index) const;
};

}  // namespace Quillcommon

namespace refl {

class CValue {
 public:
  void ReadFrom(const std::string& text);
};

}  // namespace refl

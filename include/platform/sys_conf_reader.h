// The product platform's system-configuration library, as far as the plug-in uses it.
#pragma once

#include <string>

namespace Quillcommon {

// Reads the settings of a database by its name. `dbName` is a byte string; `index` selects one of
// several entries of a name, and the plug-in always passes 0.
//
// A setting that is not configured is returned as an empty text or 0; the plug-in uses it like any
// other value. Results are the caller's own copies. The plug-in adds no lock: if the host calls it
// from several threads, the library must allow concurrent calls. The plug-in does not catch
// exceptions of these functions.
class SysConfReader {
 public:
  // The reader. The plug-in fetches it afresh before every getter and never keeps it.
  static SysConfReader& Instance();

  SysConfReader(const SysConfReader&) = delete;
  SysConfReader& operator=(const SysConfReader&) = delete;

  // Engine type, such as "mysql" or "tundra".
  std::string getDBType(const std::string& dbName, unsigned int index);

  // Login user.
  std::string getDBUserName(const std::string& dbName, unsigned int index);

  // Password, enciphered: fit only for QuillAESCipher::decryptEx.
  std::string getDBPassword(const std::string& dbName, unsigned int index);

  // Host name or address of the database service.
  std::string getDBAccessHost(const std::string& dbName, unsigned int index);

  // Service name, for engines that are not reached by host and port.
  std::string getDBServiceName(const std::string& dbName, unsigned int index);

  // TCP port of the database service.
  int getDBAccessPort(const std::string& dbName, unsigned int index);

 private:
  SysConfReader() = default;
  ~SysConfReader() = default;
};

}  // namespace Quillcommon

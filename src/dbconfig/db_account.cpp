#include <string>
#include <utility>

#include "dbconfig/dbconfig.h"
#include "dbconfig/log_source.h"
#include "dbconfig/sys_conf.h"
#include "dbconfig/wiped_string.h"
#include "platform/log_process.h"
#include "platform/quill_aes_cipher.h"
#include "platform/sys_conf_reader.h"

namespace tarn::dbconfig {
namespace {

using Quillcommon::SysConfReader;

constexpr const char* kFunction = "GetDBUserAndPassword";

// The records of a password that the preferred algorithm could not decipher.
constexpr const char* kDecipherFailed = "[tarn_interface_for_vesta] decryptEx failed Passwd";
constexpr int kDecipherFailedLine = 249;
constexpr const char* kFallbackDone = "[tarn_interface_for_vesta] decryptEx ALGID_AES128_ECB ";
constexpr int kFallbackDoneLine = 251;

// The algorithm that is tried first. The cipher library's header names only the other algorithm.
constexpr unsigned int kPreferredAlgorithm = 19;

// The result in the log's type: a platform may declare it int or unsigned.
unsigned int DecryptEx(const std::string& stored, std::string& plain, unsigned int algorithm) {
  return static_cast<unsigned int>(QuillAESCipher::decryptEx(stored, plain, algorithm));
}

void Decipher(const std::string& stored, std::string& plain) {
  const unsigned int result = DecryptEx(stored, plain, kPreferredAlgorithm);
  if (result == 0) return;
  LogProcess::Error(result, kDecipherFailed,
                    LocationInfo(kSourceFile, kFunction, kDecipherFailedLine));
  // Logged as an error even if it succeeds.
  const unsigned int fallback_result = DecryptEx(stored, plain, ALGID_AES128_ECB);
  LogProcess::Error(fallback_result, kFallbackDone,
                    LocationInfo(kSourceFile, kFunction, kFallbackDoneLine));
}

}  // namespace

void GetDBUserAndPassword(impl_dao::CProductInterface& product, std::string& user,
                          std::string& password, const std::string& dbName) {
  user = SysConfReader::Instance().getDBUserName(dbName, kEntryIndex);
  const std::string stored = SysConfReader::Instance().getDBPassword(dbName, kEntryIndex);
  WipedString plain;
  Decipher(stored, plain.Text());
  // After a failure, too: the host gets the text that the cipher left.
  password = plain.Text();

  const std::string type = SysConfReader::Instance().getDBType(dbName, kEntryIndex);
  std::string login = SysConfReader::Instance().getDBUserName(dbName, kEntryIndex);
  product.LogWarning(login.c_str());
  if (type == kMySql) {
    user = std::move(login);
  } else if (type == kTundra) {
    // This engine's login is named after the database.
    user = dbName;
  }
}

}  // namespace tarn::dbconfig

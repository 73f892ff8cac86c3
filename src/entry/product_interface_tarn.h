#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "impl_dao/product_interface.h"

// The product's one implementation of the host's interface. It holds no data. It implements logging
// and status mapping itself; every other operation is one call into src/dbconfig or src/sqlnorm.
class CProductInterface_Tarn : public impl_dao::CProductInterface {
 public:
  void LogError(const char* message) override;
  void LogWarning(const char* message) override;
  void LogDebug(const char* message) override;
  std::int64_t MapErrorCode(int status) override;
  bool GetDBUserAndPassword(std::string& user, std::string& password,
                            const std::string& dbName) override;
  bool GetDBConnectAddress(std::string& address, const std::string& dbName) override;
  bool GetDBConnectProperties(std::map<std::string, refl::CValue>& properties) override;
  bool GetDBType(std::string& dbType, const std::string& dbName) override;
  void NormalizeSQL(std::string& sql) override;
};

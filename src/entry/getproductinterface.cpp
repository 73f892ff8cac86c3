#include <cstdint>
#include <map>
#include <string>
#include <type_traits>

#include "dbconfig/dbconfig.h"
#include "dbconfig/log_source.h"
#include "entry/product_interface_tarn.h"
#include "platform/log_process.h"
#include "sqlnorm/normalize_sql.h"

namespace {

// The code of the host's own error messages in the log.
constexpr unsigned int kHostMessageCode = 666667;

// Line numbers in the log records of LogError, LogWarning and LogDebug. Readers of the log search
// for them, so they must not change, even if the code moves.
constexpr int kLogErrorLine = 213;
constexpr int kLogWarningLine = 218;
constexpr int kLogDebugLine = 222;

// The product's code for every status but 0.
constexpr std::int64_t kGenericError = 0xB000013;

// Constant data: it is usable as soon as the dynamic loader has relocated it, before any
// static initialisation, and nothing destroys it.
constinit const CProductInterface_Tarn product{};
static_assert(std::is_trivially_destructible_v<CProductInterface_Tarn>);

}  // namespace

void CProductInterface_Tarn::LogError(const char* message) {
  LogProcess::Error(kHostMessageCode, message,
                    LocationInfo(tarn::kSourceFile, "LogError", kLogErrorLine));
}

void CProductInterface_Tarn::LogWarning(const char* message) {
  LogProcess::Warn(message, LocationInfo(tarn::kSourceFile, "LogWarning", kLogWarningLine));
}

void CProductInterface_Tarn::LogDebug(const char* message) {
  LogProcess::Debug(message, LocationInfo(tarn::kSourceFile, "LogDebug", kLogDebugLine));
}

std::int64_t CProductInterface_Tarn::MapErrorCode(int status) {
  return status == 0 ? 0 : kGenericError;
}

bool CProductInterface_Tarn::GetDBUserAndPassword(std::string& user, std::string& password,
                                                  const std::string& dbName) {
  tarn::dbconfig::GetDBUserAndPassword(*this, user, password, dbName);
  return true;
}

bool CProductInterface_Tarn::GetDBConnectAddress(std::string& address, const std::string& dbName) {
  tarn::dbconfig::GetDBConnectAddress(address, dbName);
  return true;
}

bool CProductInterface_Tarn::GetDBConnectProperties(
    std::map<std::string, refl::CValue>& properties) {
  tarn::dbconfig::GetDBConnectProperties(*this, properties);
  return true;
}

bool CProductInterface_Tarn::GetDBType(std::string& dbType, const std::string& dbName) {
  tarn::dbconfig::GetDBType(*this, dbType, dbName);
  return true;
}

void CProductInterface_Tarn::NormalizeSQL(std::string& sql) {
  tarn::sqlnorm::NormalizeSQLInPlace(sql);
}

// The host's entry point. Returns the same pointer on every call, to an object that lives as long
// as the library is loaded. Never throws; any thread may call it.
extern "C" __attribute__((visibility("default"))) impl_dao::CProductInterface*
GetProductInterfaceForVESTA() noexcept {
  // The host's operations are not const-qualified; none of them modifies the object.
  return const_cast<CProductInterface_Tarn*>(&product);
}

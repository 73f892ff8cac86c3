#include <ace/OS_NS_stdlib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "dbconfig/dbconfig.h"
#include "dbconfig/ssl_mode.h"
#include "platform/c_value.h"
#include "platform/quill_process.h"

namespace tarn::dbconfig {
namespace {

// Only the low 16 bits of a process's identity and of its handle are used.
constexpr std::uint16_t kServiceProcess = 4071;

// The name of the database that a process uses by default. It depends on the kind of process and
// ends with the handle, for example "nemgr_transDB_3".
std::string DefaultDBName(std::uint16_t process, std::uint16_t handle) {
  constexpr std::size_t kFiveDigitsAndNul = 6;
  std::array<char, kFiveDigitsAndNul> number{};
  constexpr int kDecimal = 10;
  ACE_OS::itoa_emulation(handle, number.data(), kDecimal);
  std::string name = process == kServiceProcess ? "nesvc_v8ptn" : "nemgr_trans";
  name += "DB_";
  name += number.data();
  return name;
}

}  // namespace

void GetDBConnectProperties(impl_dao::CProductInterface& product,
                            std::map<std::string, refl::CValue>& properties) {
  // The process library may declare results of any integer type.
  const auto handle = static_cast<std::uint16_t>(QuillGetProcHandle());
  const auto process = static_cast<std::uint16_t>(QuillGetProcId());
  const std::string name = DefaultDBName(process, handle);
  properties["defaultDBName"].ReadFrom(name);
  product.LogWarning(name.c_str());
  // The entry is created first: if getSSLMode throws, it is there without a value.
  refl::CValue& ssl_mode = properties["SSLMODE"];
  ssl_mode.ReadFrom(getSSLMode());
}

}  // namespace tarn::dbconfig

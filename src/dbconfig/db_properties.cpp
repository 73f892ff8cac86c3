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

// Of a process's identity and of its handle only the low 16 bits count.
constexpr std::uint16_t kServiceProcess = 4071;

// The name of the database that a process uses by default: by the kind of process, and numbered by
// its handle, e.g. "nemgr_transDB_3".
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
  // The entry is there, if without a value, even when looking the mode up throws.
  refl::CValue& ssl_mode = properties["SSLMODE"];
  ssl_mode.ReadFrom(getSSLMode());
}

}  // namespace tarn::dbconfig

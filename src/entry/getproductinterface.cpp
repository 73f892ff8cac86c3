#include <cstdint>
#include <map>
#include <string>
#include <type_traits>

#include "entry/product_interface_tarn.h"
#include "entry/source_file.h"
#include "platform/log_process.h"

namespace {

// What the host's own error messages are filed under.
constexpr unsigned int kHostMessageCode = 666667;

// Lines that the log records of the bridge carry. Readers of the log search for them: they stay,
// even when the code moves.
constexpr int kLogErrorLine = 213;
constexpr int kLogWarningLine = 218;
constexpr int kLogDebugLine = 222;

// What every status but 0 maps to.
constexpr std::int64_t kGenericError = 0xB000013;

// Constant data: the dynamic loader alone makes it usable, before and independently of any static
// initialisation, and nothing destroys it.
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

// The host's way in: the same pointer on every call, to an object that lives as long as the library
// is loaded. Never throws; any thread may call it.
extern "C" __attribute__((visibility("default"))) impl_dao::CProductInterface*
GetProductInterfaceForVESTA() noexcept {
  // The host's operations are not const-qualified; none of them modifies the object.
  return const_cast<CProductInterface_Tarn*>(&product);
}

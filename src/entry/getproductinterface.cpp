#include <cstdint>
#include <map>
#include <string>
#include <type_traits>

#include "entry/product_interface_tarn.h"

namespace {

// What every status but 0 maps to.
constexpr std::int64_t kGenericError = 0xB000013;

// Constant data: the dynamic loader alone makes it usable, before and independently of any static
// initialisation, and nothing destroys it.
constinit const CProductInterface_Tarn product{};
static_assert(std::is_trivially_destructible_v<CProductInterface_Tarn>);

}  // namespace

void CProductInterface_Tarn::LogError(const char* /*message*/) {}
void CProductInterface_Tarn::LogWarning(const char* /*message*/) {}
void CProductInterface_Tarn::LogDebug(const char* /*message*/) {}

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

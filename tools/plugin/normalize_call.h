#pragma once

#include <exception>
#include <optional>
#include <string>

#include "impl_dao/product_interface.h"

namespace tarn::host {

// The reason why a normalizer threw `error`, on one line.
std::string NormalizeFailure(const std::exception& error);

// Lets `product` rewrite `sql` in place. If it throws, returns the reason and leaves `sql`
// unchanged. No exception of the library outlives the call, so the library may be unloaded
// afterwards. Thread-safe.
std::optional<std::string> CallNormalize(impl_dao::CProductInterface& product, std::string& sql);

}  // namespace tarn::host

#pragma once

#include <exception>
#include <optional>
#include <string>

#include "impl_dao/product_interface.h"

namespace tarn::host {

// Why a normalizer threw `error`, on one line.
std::string NormalizeFailure(const std::exception& error);

// Has `product` rewrite `sql` in place. Returns the reason when it threw, `sql` then being as it
// was. The exception itself is gone by then, so the library may be unloaded. Thread-safe.
std::optional<std::string> CallNormalize(impl_dao::CProductInterface& product, std::string& sql);

}  // namespace tarn::host

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "impl_dao/product_interface.h"

namespace tarn::host {

// Names the first decimal literal in `sql` that makes the product throw: "1.0e999 is beyond the
// range of a double".
std::optional<std::string> DecimalBeyondDouble(std::string_view sql);

// Has `product` rewrite `sql` in place. Returns the reason when it threw, `sql` then being as it
// was. The exception itself is gone by then, so the library may be unloaded. Thread-safe.
std::optional<std::string> CallNormalize(impl_dao::CProductInterface& product, std::string& sql);

}  // namespace tarn::host

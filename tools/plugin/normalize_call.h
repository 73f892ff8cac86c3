#pragma once

#include <exception>
#include <optional>
#include <string>
#include <typeinfo>

#include "impl_dao/product_interface.h"

namespace tarn::host {

// The reason why a normalizer threw `error`, on one line.
inline std::string NormalizeFailure(const std::exception& error) {
  // The conversion of a decimal literal throws this, with a text that does not mention literals.
  if (dynamic_cast<const std::bad_cast*>(&error) != nullptr) {
    return "a decimal number is beyond the range of a double";
  }
  return error.what();
}

// Lets `product` rewrite `sql` in place. If it throws, returns the reason and leaves `sql`
// unchanged. No exception of the library outlives the call, so the library may be unloaded
// afterwards. Thread-safe.
inline std::optional<std::string> CallNormalize(impl_dao::CProductInterface& product,
                                                std::string& sql) {
  try {
    product.NormalizeSQL(sql);
    return std::nullopt;
  } catch (const std::exception& error) {
    return NormalizeFailure(error);
  } catch (...) {
    return "an exception of unknown type";
  }
}

}  // namespace tarn::host

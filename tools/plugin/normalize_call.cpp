#include "plugin/normalize_call.h"

#include <typeinfo>

namespace tarn::host {

std::string NormalizeFailure(const std::exception& error) {
  // The conversion of a decimal literal throws this, with a text that does not mention literals.
  if (dynamic_cast<const std::bad_cast*>(&error) != nullptr) {
    return "a decimal number is beyond the range of a double";
  }
  return error.what();
}

std::optional<std::string> CallNormalize(impl_dao::CProductInterface& product, std::string& sql) {
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

#include "tarn_host/normalize_call.h"

#include <exception>
#include <optional>
#include <string>

namespace tarn::host {

std::optional<std::string> CallNormalize(impl_dao::CProductInterface& product, std::string& sql) {
  try {
    product.NormalizeSQL(sql);
    return std::nullopt;
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "an exception of unknown type";
  }
}

}  // namespace tarn::host

#include "sqlnorm/normalize_sql.h"

#include <string>
#include <utility>

#include "entry/product_interface_tarn.h"
#include "sqlnorm/pattern_road.h"

namespace tarn::sqlnorm {

std::string NormalizeSQLText(const std::string& sql) { return NormalizeByPatterns(sql); }

}  // namespace tarn::sqlnorm

void CProductInterface_Tarn::NormalizeSQL(std::string& sql) {
  std::string canonical = tarn::sqlnorm::NormalizeSQLText(sql);
  sql = std::move(canonical);
}

#include "sqlnorm/normalize_sql.h"

#include <string>
#include <utility>

#include "entry/product_interface_tarn.h"
#include "sqlnorm/pattern_road.h"
#include "sqlnorm/scanner_road.h"

namespace tarn::sqlnorm {

Road RoadTaken() noexcept { return PatternsSawClassicClasses() ? Road::kScanner : Road::kPatterns; }

std::string NormalizeSQLText(const std::string& sql) {
  return RoadTaken() == Road::kScanner ? NormalizeByScanner(sql) : NormalizeByPatterns(sql);
}

}  // namespace tarn::sqlnorm

void CProductInterface_Tarn::NormalizeSQL(std::string& sql) {
  std::string canonical = tarn::sqlnorm::NormalizeSQLText(sql);
  sql = std::move(canonical);
}

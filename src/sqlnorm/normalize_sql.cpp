#include "sqlnorm/normalize_sql.h"

#include <string>

#include "sqlnorm/patterns/pattern_engine.h"
#include "sqlnorm/scanner/scanner_engine.h"

namespace tarn::sqlnorm {

Engine ChosenEngine() noexcept {
  return PatternsSawClassicClasses() ? Engine::kScanner : Engine::kPatterns;
}

std::string NormalizeSQLText(const std::string& sql) {
  return ChosenEngine() == Engine::kScanner ? NormalizeByScanner(sql) : NormalizeByPatterns(sql);
}

}  // namespace tarn::sqlnorm

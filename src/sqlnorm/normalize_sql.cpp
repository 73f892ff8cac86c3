#include "sqlnorm/normalize_sql.h"

#include <string>

#include "sqlnorm/patterns/pattern_engine.h"
#include "sqlnorm/scanner/scanner_engine.h"

namespace tarn::sqlnorm {

Engine ChosenEngine() noexcept {
  return PatternsSawClassicClasses() ? Engine::kScanner : Engine::kPatterns;
}

void NormalizeInPlaceByScanner(std::string& sql) {
  OutputBuffer output;
  // Allocates, if at all, before it changes `sql`.
  sql.assign(NormalizeInto(sql, output));
}

std::string NormalizeSQLText(const std::string& sql) {
  std::string text = sql;
  NormalizeSQLInPlace(text);
  return text;
}

void NormalizeSQLInPlace(std::string& sql) {
  if (ChosenEngine() == Engine::kScanner) {
    NormalizeInPlaceByScanner(sql);
  } else {
    sql = NormalizeByPatterns(sql);
  }
}

}  // namespace tarn::sqlnorm

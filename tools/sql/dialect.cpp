#include "sql/dialect.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

#include "sql/text.h"

namespace tarn::host {

const std::map<std::string, Dialect>& Dialects() {
  static const std::map<std::string, Dialect> kDialects{
      {"mysql", Dialect::kMysql}, {"ansi", Dialect::kAnsi}, {"postgres", Dialect::kPostgres}};
  return kDialects;
}

bool BeginsLineComment(std::string_view rest, Dialect dialect) noexcept {
  if (dialect != Dialect::kMysql) return rest.starts_with("--");
  if (rest.starts_with('#')) return true;
  // "5--1" is an expression to MySQL.
  constexpr char kFirstPrinted = '!';
  return rest.starts_with("--") &&
         (rest.size() == 2 || (rest[2] >= '\0' && rest[2] < kFirstPrinted));
}

bool BeginsExecutableComment(std::string_view rest, Dialect dialect) noexcept {
  return dialect == Dialect::kMysql && (rest.starts_with("/*!") || rest.starts_with("/*M!"));
}

std::size_t DollarTagSize(std::string_view rest) noexcept {
  // Longer names than PostgreSQL's would only be looked through again and again.
  constexpr std::size_t kLongestTag = 64;
  for (std::size_t i = 1; i < rest.size(); ++i) {
    if (rest[i] == '$') return i + 1;
    if (i == kLongestTag) return 0;
    if (!IsWord(rest[i]) || (i == 1 && IsDigit(rest[i]))) return 0;
  }
  return kUnfinishedTag;
}

}  // namespace tarn::host

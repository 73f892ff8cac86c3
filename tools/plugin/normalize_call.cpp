#include "plugin/normalize_call.h"

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "sql/dialect.h"
#include "sql/text.h"

namespace tarn::host {

namespace {

constexpr std::size_t kNoPlace = std::string_view::npos;

// Where the decimal literal with that dot ends: digits behind the dot and perhaps an exponent.
std::size_t EndOfDecimal(std::string_view sql, std::size_t dot) {
  const auto digits_end = [sql](std::size_t from) {
    while (from < sql.size() && IsDigit(sql[from])) ++from;
    return from;
  };
  const std::size_t end = digits_end(dot + 1);
  if (end == sql.size() || Lower(sql[end]) != 'e') return end;
  const bool sign = end + 1 < sql.size() && (sql[end + 1] == '+' || sql[end + 1] == '-');
  const std::size_t exponent = end + (sign ? 2 : 1);
  const std::size_t exponent_end = digits_end(exponent);
  return exponent_end == exponent ? end : exponent_end;
}

}  // namespace

// As the product finds decimals: no letter, digit or "_" at either end, and none within another.
std::optional<std::string> DecimalBeyondDouble(std::string_view sql) {
  constexpr std::size_t kShown = 40;
  std::size_t done = 0;
  for (std::size_t dot = sql.find('.'); dot != kNoPlace; dot = sql.find('.', dot + 1)) {
    std::size_t begin = dot;
    while (begin > done && IsDigit(sql[begin - 1])) --begin;
    const bool digits = begin < dot && dot + 1 < sql.size() && IsDigit(sql[dot + 1]);
    if (!digits || (begin > 0 && IsProductWord(sql[begin - 1]))) continue;
    const std::size_t end = EndOfDecimal(sql, dot);
    if (end < sql.size() && IsProductWord(sql[end])) continue;
    done = end;
    const std::string literal(sql.substr(begin, end - begin));
    // Without an exponent it takes as many digits.
    const bool may_be = dot - begin > std::numeric_limits<double>::max_exponent10 ||
                        literal.find_first_of("eE") != kNoPlace;
    if (may_be && std::isinf(std::strtod(literal.c_str(), nullptr))) {
      return (literal.size() <= kShown ? literal : literal.substr(0, kShown) + "...") +
             " is beyond the range of a double";
    }
  }
  return std::nullopt;
}

std::optional<std::string> CallNormalize(impl_dao::CProductInterface& product, std::string& sql) {
  std::string reason;
  try {
    product.NormalizeSQL(sql);
    return std::nullopt;
  } catch (const std::exception& error) {
    reason = error.what();
  } catch (...) {
    reason = "an exception of unknown type";
  }
  return DecimalBeyondDouble(sql).value_or(reason);
}

}  // namespace tarn::host

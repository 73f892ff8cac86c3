#include "tarn_host/normalize_call.h"

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "tarn_host/input/dialect.h"

namespace tarn::host {

namespace {

constexpr std::size_t kNoPlace = std::string_view::npos;

// Where the decimal literal ends that begins at `at`, as the product finds decimals: digits, a dot,
// digits and perhaps an exponent, no letter, digit or "_" at either end. kNoPlace when it is none.
std::size_t EndOfDecimal(std::string_view sql, std::size_t at) {
  const auto digits_end = [sql](std::size_t from) {
    while (from < sql.size() && IsDigit(sql[from])) ++from;
    return from;
  };
  const std::size_t dot = digits_end(at);
  if (dot + 1 >= sql.size() || sql[dot] != '.' || !IsDigit(sql[dot + 1])) return kNoPlace;
  std::size_t end = digits_end(dot + 1);
  if (end < sql.size() && Lower(sql[end]) == 'e') {
    const bool sign = end + 1 < sql.size() && (sql[end + 1] == '+' || sql[end + 1] == '-');
    const std::size_t exponent = end + (sign ? 2 : 1);
    if (exponent < sql.size() && IsDigit(sql[exponent])) end = digits_end(exponent);
  }
  return end;
}

// Whether a decimal has an exponent, or as many digits before its dot as take it out of the range
// of a double. Hardly any statement holds one.
bool HasLargeDecimal(std::string_view sql) {
  for (std::size_t dot = sql.find('.'); dot != kNoPlace; dot = sql.find('.', dot + 1)) {
    std::size_t end = dot + 1;
    while (end < sql.size() && IsDigit(sql[end])) ++end;
    if (end == dot + 1) continue;
    if (end < sql.size() && Lower(sql[end]) == 'e') return true;
    std::size_t begin = dot;
    while (begin > 0 && IsDigit(sql[begin - 1])) --begin;
    if (dot - begin > std::numeric_limits<double>::max_exponent10) return true;
  }
  return false;
}

}  // namespace

std::optional<std::string> DecimalBeyondDouble(std::string_view sql) {
  if (!HasLargeDecimal(sql)) return std::nullopt;
  constexpr std::size_t kShown = 40;
  for (std::size_t at = 0; at < sql.size();) {
    if (!IsWord(sql[at])) {
      ++at;
      continue;
    }
    std::size_t end = IsDigit(sql[at]) ? EndOfDecimal(sql, at) : kNoPlace;
    if (end != kNoPlace) {
      const std::string literal(sql.substr(at, end - at));
      if (std::isinf(std::strtod(literal.c_str(), nullptr))) {
        return (literal.size() <= kShown ? literal : literal.substr(0, kShown) + "...") +
               " is beyond the range of a double";
      }
      at = end;
    }
    while (at < sql.size() && IsWord(sql[at])) ++at;
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

#include "sqlnorm/scanner/alias_number.h"

#include <algorithm>
#include <array>
#include <boost/lexical_cast.hpp>
#include <charconv>
#include <cstdint>
#include <locale>

namespace tarn::sqlnorm {

char* AliasNumberPrinter::PrintLong(std::uint32_t number, char* out) {
  if (grouping_ == Grouping::kUnknown) {
    const std::locale locale;
    const bool groups = !std::use_facet<std::numpunct<char>>(locale).grouping().empty();
    grouping_ = groups ? Grouping::kOfLocale : Grouping::kNone;
  }
  if (grouping_ == Grouping::kNone) return std::to_chars(out, out + kMostAliasNumber, number).ptr;
  // NUL bytes fill the array after the number. A separator may be a NUL byte, too, but the number's
  // last byte is a digit.
  const auto grouped = boost::lexical_cast<std::array<char, kMostAliasNumber + 1>>(number);
  const auto last =
      std::find_if(grouped.rbegin(), grouped.rend(), [](char c) { return c != '\0'; });
  return std::copy(grouped.begin(), last.base(), out);
}

}  // namespace tarn::sqlnorm

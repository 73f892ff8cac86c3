#pragma once

#include <cstddef>
#include <string_view>

namespace tarn::sqlnorm {

// Room for anything that ReprintDecimal writes: "2.2250738585072014e-308" and the like take 23.
inline constexpr std::size_t kLongestPrintedDecimal = 32;

// Writes the value of `literal`, digits.digits and perhaps an exponent, in double precision with up
// to 17 significant digits, as printf's "%.17g" does under the classic locale. Returns the end of
// what it wrote. Throws boost::bad_lexical_cast if the value is beyond the range of double; one too
// small for it is 0. At least kLongestPrintedDecimal bytes must be writable at `out`.
char* ReprintDecimal(std::string_view literal, char* out);

}  // namespace tarn::sqlnorm

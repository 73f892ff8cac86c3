#pragma once

#include <cstddef>

namespace tarn::sqlnorm {

// The positions of the parts of a decimal literal: digits, a dot, digits, and perhaps an exponent,
// for example 1.5e+3. At least one digit is on either side of the dot.
struct DecimalLiteral {
  const char* begin;
  const char* dot;
  const char* exponent;  // its letter; `end` if there is none
  const char* end;
};

// The number of bytes that ReprintDecimal may touch. The longest output takes 23, for example
// "2.2250738585072014e-308".
inline constexpr std::size_t kRoomForDecimal = 48;

// Writes the literal's value in double precision with up to 17 significant digits, as printf's
// "%.17g" does under the classic locale. Returns the end of the output. Throws
// boost::bad_lexical_cast if the value is beyond the range of double; one too small for it is 0.
//
// Requires: at least kRoomForDecimal bytes are writable at `out`, and 16 can be read at the
// literal's begin.
char* ReprintDecimal(const DecimalLiteral& literal, char* out);

// Throws as ReprintDecimal does, and writes nothing.
void CheckDecimalRange(const DecimalLiteral& literal);

}  // namespace tarn::sqlnorm

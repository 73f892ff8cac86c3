// The scanner engine: the same canonical text as the pattern engine's, byte for byte, in time
// linear in the length of the statement, whatever the statement.
#pragma once

#include <string>

namespace tarn::sqlnorm {

// As NormalizeByPatterns, on these terms: bytes are classified and numbers read and printed under
// the classic locale, whatever the process has set; and a statement that makes the
// regular-expression library give up is no exception here.
//
// Throws boost::bad_lexical_cast for a decimal literal beyond the range of double, std::bad_alloc.
// Allocates the result and, for a long statement, a few buffers that grow with it; besides for
// aliases beyond the first sixteen, and for each that is longer than eight bytes. Thread-safe: it
// reads nothing but its argument and constants.
std::string NormalizeByScanner(const std::string& sql);

}  // namespace tarn::sqlnorm

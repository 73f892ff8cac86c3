// The scanner engine: the same canonical text as the pattern engine's, byte for byte, in time
// linear in the length of the statement, whatever the statement.
#pragma once

#include <string>
#include <string_view>

#include "sqlnorm/scanner/text_buffer.h"

namespace tarn::sqlnorm {

// As NormalizeByPatterns, but bytes are classified and literals read and printed under the classic
// locale, whatever the process has set. Only the digit grouping of alias numbers follows the global
// C++ locale, that of the call. A statement on which the regular-expression library gives up is
// normalized like any other.
//
// Throws boost::bad_lexical_cast for a decimal literal beyond the range of double, std::bad_alloc.
// Allocates the result; for a long statement a few buffers that grow with it; and a few more if it
// has more than sixteen distinct aliases. Thread-safe: it reads its argument, constants and the
// global locale.
std::string NormalizeByScanner(const std::string& sql);

// The same, as a view of `output`.
std::string_view NormalizeInto(const std::string& sql, OutputBuffer& output);

// The same, written over `sql`, which is unchanged if this throws. No string is allocated if the
// text fits into the capacity of `sql`, which it keeps.
//
// Defined outside this folder, which is built for MemorySanitizer too: an instrumented
// std::string::assign would replace the one that the fuzzer's own code uses.
void NormalizeInPlaceByScanner(std::string& sql);

}  // namespace tarn::sqlnorm

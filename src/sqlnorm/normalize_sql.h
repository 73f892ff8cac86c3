#pragma once

#include <string>

namespace tarn::sqlnorm {

// The canonical text of `sql`: statements of one shape meet in one text. The result is a key, not
// SQL to execute. Bytes in, bytes out; NUL bytes and bytes above 0x7F are ordinary characters.
//
// Throws boost::bad_lexical_cast for a decimal literal beyond the range of double,
// std::runtime_error when the regular-expression library gives up on the text, std::bad_alloc.
// Thread-safe.
std::string NormalizeSQLText(const std::string& sql);

}  // namespace tarn::sqlnorm

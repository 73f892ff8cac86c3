#pragma once

#include <string>

namespace tarn::sqlnorm {

// The two ways to the same canonical text.
enum class Engine {
  kScanner,   // hand-written, linear in the statement; classifies bytes under the classic locale
  kPatterns,  // the 23 regular expressions, which saw the global locale when the library was loaded
};

// The engine that NormalizeSQLText takes, settled when the library is loaded: the scanner, unless
// the patterns were compiled under a locale whose classes of bytes are not those of the classic
// one.
Engine ChosenEngine() noexcept;

// The canonical text of `sql`: statements of one shape meet in one text. The result is a key, not
// SQL to execute. Bytes in, bytes out; NUL bytes and bytes above 0x7F are ordinary characters.
//
// Throws boost::bad_lexical_cast for a decimal literal beyond the range of double, std::bad_alloc,
// and on the pattern engine std::runtime_error when the regular-expression library gives up on the
// text. Thread-safe.
std::string NormalizeSQLText(const std::string& sql);

}  // namespace tarn::sqlnorm

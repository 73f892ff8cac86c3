#pragma once

#include <string>

namespace tarn::sqlnorm {

// The two implementations of the same canonical text.
enum class Engine {
  kScanner,   // hand-written, linear in the statement; classifies bytes under the classic locale
  kPatterns,  // the 23 regular expressions, under the locale that was global at loading
};

// The engine that the functions below use, decided when the library is loaded: the scanner, unless
// the patterns were compiled under a locale that classifies some byte otherwise than the classic
// one.
Engine ChosenEngine() noexcept;

// The canonical text of `sql`, which is the same, for example, for statements that differ only in
// spacing. The result is a key, not SQL to execute. Bytes in, bytes out; NUL bytes and bytes above
// 0x7F are ordinary characters.
//
// Throws boost::bad_lexical_cast for a decimal literal beyond the range of double, std::bad_alloc,
// and on the pattern engine std::runtime_error if the regular-expression library gives up on the
// text. Thread-safe.
std::string NormalizeSQLText(const std::string& sql);

// Replaces `sql` by its canonical text. `sql` is written after everything that can throw, so an
// exception leaves it as it was. With the scanner `sql` keeps its capacity: a host that stores
// millions of short texts made from long statements should shrink or copy them.
void NormalizeSQLInPlace(std::string& sql);

}  // namespace tarn::sqlnorm

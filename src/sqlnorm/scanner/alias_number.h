#pragma once

#include <cstddef>
#include <cstdint>

namespace tarn::sqlnorm {

// The most bytes of a printed alias number: ten digits, and a separator between any two.
inline constexpr std::size_t kMostAliasNumber = 19;

// Prints the alias numbers of one text, in decimal, with the digit grouping of the global C++
// locale. No other number follows that locale. It is the locale of the call, not of loading, and is
// looked up once, when the first number of two digits is printed.
class AliasNumberPrinter {
 public:
  // Prints `number` to `out`, which has space for kMostAliasNumber bytes, and returns the end of
  // the output. Throws std::bad_alloc.
  char* Print(std::uint32_t number, char* out) {
    constexpr std::uint32_t kTwoDigits = 10;
    if (number >= kTwoDigits) return PrintLong(number, out);
    *out = static_cast<char>('0' + number);
    return out + 1;
  }

 private:
  enum class Grouping { kUnknown, kNone, kOfLocale };

  char* PrintLong(std::uint32_t number, char* out);

  Grouping grouping_ = Grouping::kUnknown;
};

}  // namespace tarn::sqlnorm

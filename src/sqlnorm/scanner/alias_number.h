#pragma once

#include <cstddef>
#include <cstdint>

namespace tarn::sqlnorm {

// Most bytes that an alias's number is printed as: ten digits, and a separator between any two.
inline constexpr std::size_t kMostAliasNumber = 19;

// Prints the aliases' numbers of one text, in decimal, with the digit grouping of the global C++
// locale. Alone of all numbers they follow it: the locale is the one of the call, not of loading.
// It is asked once, when the first number of two digits is printed.
class AliasNumberPrinter {
 public:
  // Prints `number` to `out`, which has space for kMostAliasNumber bytes; the end of what was
  // printed. Throws std::bad_alloc.
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

#pragma once

#include <array>
#include <cstddef>

namespace tarn::sqlnorm {

// The class of a byte under the classic locale, whatever the process's locale is.
enum class ByteClass : unsigned char {
  kLetter,  // A-Z, a-z and the underscore
  kDigit,   // 0-9
  kSpace,   // space, \t, \n, \v, \f, \r
  kOther,
  kParenthesis,  // ( )
  kComma,
  kDot,
  kAngle,  // < > !, which may begin an operator of two characters
};

namespace internal {

constexpr std::array<ByteClass, 256> MakeByteClasses() {
  std::array<ByteClass, 256> classes{};
  classes.fill(ByteClass::kOther);
  for (unsigned char c = 'a'; c <= 'z'; ++c) classes[c] = ByteClass::kLetter;
  for (unsigned char c = 'A'; c <= 'Z'; ++c) classes[c] = ByteClass::kLetter;
  for (unsigned char c = '0'; c <= '9'; ++c) classes[c] = ByteClass::kDigit;
  for (unsigned char c = '\t'; c <= '\r'; ++c) classes[c] = ByteClass::kSpace;
  classes[' '] = ByteClass::kSpace;
  classes['<'] = classes['>'] = classes['!'] = ByteClass::kAngle;
  classes['_'] = ByteClass::kLetter;
  classes['('] = classes[')'] = ByteClass::kParenthesis;
  classes[','] = ByteClass::kComma;
  classes['.'] = ByteClass::kDot;
  return classes;
}

inline constexpr std::array<ByteClass, 256> kByteClasses = MakeByteClasses();

}  // namespace internal

constexpr ByteClass ClassOf(char c) noexcept {
  return internal::kByteClasses[static_cast<unsigned char>(c)];
}
constexpr bool IsDigit(char c) noexcept { return static_cast<unsigned char>(c - '0') < 10; }
constexpr bool IsSpace(char c) noexcept { return ClassOf(c) == ByteClass::kSpace; }
constexpr bool IsWord(char c) noexcept {
  return ClassOf(c) == ByteClass::kLetter || ClassOf(c) == ByteClass::kDigit;
}

// 80 readable NUL bytes follow each of the scanner's texts: blocks of 64 bytes and a few bytes
// after them overrun its end, and a NUL ends every run.
inline constexpr std::size_t kPadding = 80;

// The first byte at or after `p` that does not belong to the run. The text must be padded.
inline const char* SkipSpaces(const char* p) noexcept {
  while (IsSpace(*p)) ++p;
  return p;
}
inline const char* SkipWord(const char* p) noexcept {
  while (IsWord(*p)) ++p;
  return p;
}
inline const char* SkipDigits(const char* p) noexcept {
  while (IsDigit(*p)) ++p;
  return p;
}

// Whether the letters of `lower` are at `p`, in either case. Requires: `lower` consists of
// lower-case letters, and as many bytes can be read at `p`.
template <std::size_t N>
bool HasLettersAt(const char* p, const char (&lower)[N]) noexcept {
  for (std::size_t i = 0; i + 1 < N; ++i) {
    if ((p[i] | 0x20) != lower[i]) return false;
  }
  return true;
}

// The text begins at `begin`. Returns the end of the last byte before `p` that is no space, or
// `begin`.
inline const char* SkipSpacesBack(const char* begin, const char* p) noexcept {
  while (p != begin && IsSpace(p[-1])) --p;
  return p;
}

// The beginning of the word that ends at `p`, if that whole word is `lower` in either case; or
// null. The text begins at `begin`.
template <std::size_t N>
const char* MatchWordBack(const char* begin, const char* p, const char (&lower)[N]) noexcept {
  constexpr std::ptrdiff_t kLength = N - 1;
  if (p - begin < kLength) return nullptr;
  p -= kLength;
  return HasLettersAt(p, lower) && (p == begin || !IsWord(p[-1])) ? p : nullptr;
}

}  // namespace tarn::sqlnorm

// Runs the scanner alone, under MemorySanitizer: no byte of its result, and no value that one of
// its branches depends on, may be uninitialised. The patterns are left out, since Boost's library
// is built without the sanitizer.
//
// The C++ library is built without it, too. The linker redirects the scanner's calls of two
// functions to wrappers here (--wrap), which mark the written bytes as initialised.
#include <sanitizer/msan_interface.h>

#include <boost/lexical_cast/bad_lexical_cast.hpp>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>

#include "sqlnorm/scanner/scanner_engine.h"

std::to_chars_result Print(char* first, char* last, double value, std::chars_format format,
                           int precision) asm("__real__ZSt8to_charsPcS_dSt12chars_formati");
std::to_chars_result WrappedPrint(char* first, char* last, double value, std::chars_format format,
                                  int precision) asm("__wrap__ZSt8to_charsPcS_dSt12chars_formati");

std::to_chars_result WrappedPrint(char* first, char* last, double value, std::chars_format format,
                                  int precision) {
  const std::to_chars_result result = Print(first, last, value, format, precision);
  __msan_unpoison(&result, sizeof result);
  __msan_unpoison(first, static_cast<std::size_t>(result.ptr - first));
  return result;
}

// Compiled without the sanitizer, since it uses the C++ library's locale and prints through it.
char* PrintLong(void* self, std::uint32_t number,
                char* out) asm("__real__ZN4tarn7sqlnorm18AliasNumberPrinter9PrintLongEjPc");
char* WrappedPrintLong(void* self, std::uint32_t number,
                       char* out) asm("__wrap__ZN4tarn7sqlnorm18AliasNumberPrinter9PrintLongEjPc");

char* WrappedPrintLong(void* self, std::uint32_t number, char* out) {
  char* end = PrintLong(self, number, out);
  __msan_unpoison(&end, sizeof end);
  __msan_unpoison(self, sizeof(int));
  __msan_unpoison(out, static_cast<std::size_t>(end - out));
  return end;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const std::string text =
        tarn::sqlnorm::NormalizeByScanner(std::string(reinterpret_cast<const char*>(data), size));
    __msan_check_mem_is_initialized(text.data(), text.size());
  } catch (const boost::bad_lexical_cast&) {
    // A decimal beyond the range of double.
  }
  return 0;
}

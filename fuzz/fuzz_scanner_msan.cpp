// Feeds the scanner alone, under MemorySanitizer: nothing that it decides by, and no byte of its
// result, is uninitialised. The patterns stay out, since Boost's library knows nothing of the
// sanitizer.
//
// Nor does the C++ library. The linker sends the scanner's calls of two of its functions here
// (--wrap), which tell the sanitizer what was written.
#include <sanitizer/msan_interface.h>

#include <boost/lexical_cast/bad_lexical_cast.hpp>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <map>
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

using Node = std::_Rb_tree_node_base;
void Insert(bool left, Node* node, Node* parent, Node& header) asm(
    "__real__ZSt29_Rb_tree_insert_and_rebalancebPSt18_Rb_tree_node_baseS0_RS_");
void WrappedInsert(bool left, Node* node, Node* parent, Node& header) asm(
    "__wrap__ZSt29_Rb_tree_insert_and_rebalancebPSt18_Rb_tree_node_baseS0_RS_");

void WrappedInsert(bool left, Node* node, Node* parent, Node& header) {
  Insert(left, node, parent, header);
  __msan_unpoison(node, sizeof *node);
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

#include "sql/errors.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

namespace tarn::host {

std::string SystemReason(std::string_view name, int error) {
  return std::string(name) + ": " + std::generic_category().message(error);
}

std::string StatementReason(std::string_view input, std::uint64_t number, std::string_view reason) {
  std::string message(input);
  message += ": statement ";
  message += std::to_string(number);
  message += ": ";
  message += reason;
  return message;
}

std::string OneLine(std::string_view text) {
  constexpr char kHexDigits[] = "0123456789ABCDEF";
  constexpr unsigned char kDelete = 0x7F;
  // U+0080 to U+009F, which a terminal may obey as it does those below the blank.
  constexpr char kLead = '\xC2';
  constexpr unsigned char kLast = 0x9F;
  std::string line;
  line.reserve(text.size());
  char before = '\0';
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool second = before == kLead && byte > kDelete && byte <= kLast;
    before = c;
    if (c == '\n') {
      line += "\\n";
    } else if (c == '\t') {
      line += "\\t";
    } else if (c == '\r') {
      line += "\\r";
    } else if (byte < ' ' || byte == kDelete || second) {
      if (second) line.replace(line.size() - 1, 1, "\\xC2");
      line += "\\x";
      line += kHexDigits[byte >> 4U];
      line += kHexDigits[byte & 0xFU];
    } else {
      line += c;
    }
  }
  return line;
}

}  // namespace tarn::host

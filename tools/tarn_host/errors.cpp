#include "tarn_host/errors.h"

#include <cstdio>
#include <string>
#include <string_view>
#include <system_error>

namespace tarn::host {

std::string SystemReason(std::string_view name, int error) {
  return std::string(name) + ": " + std::generic_category().message(error);
}

std::string OneLine(std::string_view text) {
  constexpr char kHexDigits[] = "0123456789ABCDEF";
  constexpr unsigned char kDelete = 0x7F;
  std::string line;
  line.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      line += "\\n";
    } else if (c == '\t') {
      line += "\\t";
    } else if (c == '\r') {
      line += "\\r";
    } else if (byte < ' ' || byte == kDelete) {
      line += "\\x";
      line += kHexDigits[byte >> 4U];
      line += kHexDigits[byte & 0xFU];
    } else {
      line += c;
    }
  }
  return line;
}

void ReportError(std::string_view message) {
  const std::string line = "tarn_host: " + OneLine(message) + '\n';
  // There is no one left to tell if standard error can't be written.
  static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
}

}  // namespace tarn::host

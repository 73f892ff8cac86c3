#include "tarn_host/json.h"

#include <nlohmann/json.hpp>
#include <string_view>

namespace tarn::host {

std::string JsonText(const nlohmann::ordered_json& document) {
  constexpr int kIndent = 2;
  constexpr std::string_view kHexDigits = "0123456789abcdef";
  constexpr unsigned char kDelete = 0x7F;
  constexpr unsigned char kFirstControl = 0x80;
  constexpr unsigned char kLastControl = 0x9F;
  const std::string json =
      document.dump(kIndent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  // The library escapes only the control characters below U+0020. The others occur only in texts,
  // which are valid UTF-8 by now. There 0xC2 always begins a character of two bytes.
  std::string text;
  text.reserve(json.size());
  for (const char c : json) {
    const auto byte = static_cast<unsigned char>(c);
    const bool after_lead = !text.empty() && text.back() == '\xC2';
    if (byte == kDelete || (after_lead && byte >= kFirstControl && byte <= kLastControl)) {
      if (after_lead) text.pop_back();
      text += {'\\', 'u', '0', '0', kHexDigits[byte >> 4U], kHexDigits[byte & 0xFU]};
    } else {
      text += c;
    }
  }
  return text;
}

}  // namespace tarn::host

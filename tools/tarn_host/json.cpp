#include "tarn_host/json.h"

#include <fmt/format.h>

#include <cstddef>
#include <iterator>
#include <nlohmann/json.hpp>

namespace tarn::host {

std::string JsonText(const nlohmann::ordered_json& document, std::size_t margin) {
  constexpr int kIndent = 2;
  const std::string json =
      document.dump(kIndent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  // The library escapes only the control characters below U+0020. The others occur only in texts,
  // which are valid UTF-8 by now: DEL, and 0xC2 with a byte from 0x80 to 0x9F.
  std::string text;
  text.reserve(json.size());
  for (std::size_t at = 0; at < json.size(); ++at) {
    const bool two_bytes = json[at] == '\xC2' && json[at + 1] <= '\x9F';
    if (two_bytes) ++at;
    if (two_bytes || json[at] == '\x7F') {
      const auto byte = static_cast<unsigned char>(json[at]);
      fmt::format_to(std::back_inserter(text), "\\u{:04x}", byte);
    } else {
      text += json[at];
      if (json[at] == '\n') text.append(margin, ' ');
    }
  }
  return text;
}

}  // namespace tarn::host

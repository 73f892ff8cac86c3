// Compares the search for the SSL mode with a second implementation of its rules, by positions.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "dbconfig/ssl_mode.h"

namespace {

// Whether the first `value` at or after `from` begins at most `distance` after `key`.
bool IsNear(const std::string& text, std::size_t key, std::size_t from, std::size_t distance,
            const char* value) {
  const std::size_t at = text.find(value, key + from);
  return at != std::string::npos && at - key <= distance;
}

std::string Expected(const std::string& text) {
  const std::size_t mode = text.find("\"sslmode\"");
  if (mode != std::string::npos) {
    if (IsNear(text, mode, 7, 14, "\"disabled\"")) return "0";
    if (IsNear(text, mode, 7, 14, "\"required\"")) return "2";
  }
  const std::size_t ssl = text.find("\"ssl\"");
  if (ssl != std::string::npos) {
    if (IsNear(text, ssl, 5, 8, "true")) return "2";
    if (IsNear(text, ssl, 5, 8, "false")) return "0";
  }
  return "1";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto found = tarn::dbconfig::FindSSLMode(text);
  if (found.value_or(tarn::dbconfig::kSslDefault) != Expected(text)) std::abort();
  return 0;
}

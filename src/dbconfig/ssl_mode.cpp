#include "dbconfig/ssl_mode.h"

#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "dbconfig/log_source.h"
#include "platform/log_process.h"

namespace tarn::dbconfig {
namespace {

constexpr const char* kFunction = "getSSLMode";

// The warnings, and the line numbers in their records. Readers of the log search for the first one
// as it is spelled.
constexpr const char* kNoFileNamed =
    "[tarn_interface_for_vesta] getSSLmdoe error : APP_CONF_FILE = NULL";
constexpr int kNoFileNamedLine = 62;
constexpr const char* kFileNotOpened =
    "[tarn_interface_for_vesta] Fail to read sslmode, open file error";
constexpr int kFileNotOpenedLine = 69;
constexpr const char* kNothingConfigured =
    "[tarn_interface_for_vesta] Fail to read ssl in config file";
constexpr int kNothingConfiguredLine = 122;

void Warn(const char* message, int line) {
  LogProcess::Warn(message, LocationInfo(kSourceFile, kFunction, line));
}

// A key, and the range in which its value may begin, in bytes from the key's beginning.
struct Key {
  std::string_view text;
  std::size_t nearest;
  std::size_t farthest;
};

// The range begins at the key's last letter, since the key's closing quote may serve as the value's
// opening one: for example, "sslmode"disabled" sets the mode.
constexpr Key kModeKey{"\"sslmode\"", 7, 14};
constexpr Key kBooleanKey{"\"ssl\"", 5, 8};

// The content from the key's first occurrence on, if there is one.
std::optional<std::string_view> FromKey(std::string_view content, const Key& key) noexcept {
  const std::size_t position = content.find(key.text);
  if (position == std::string_view::npos) return std::nullopt;
  return content.substr(position);
}

// Whether the first `value` after the key begins within the key's range. If any value does, the
// first one does, so the text after the range need not be searched.
bool HasValue(std::string_view from_key, const Key& key, std::string_view value) noexcept {
  const std::string_view window = from_key.substr(0, key.farthest + value.size());
  return window.find(value, key.nearest) != std::string_view::npos;
}

// The file's content, up to its end or the first read error. A folder has no content.
std::string ReadWhole(std::ifstream& file) {
  std::string content;
  // Byte by byte: get() takes a read error for the end and loses no byte before it. Only the string
  // allocates memory, and it throws if there is none.
  for (char byte = 0; file.get(byte);) content.push_back(byte);
  return content;
}

}  // namespace

std::optional<std::string_view> FindSSLMode(std::string_view content) noexcept {
  if (const auto from_key = FromKey(content, kModeKey)) {
    if (HasValue(*from_key, kModeKey, "\"disabled\"")) return kSslDisabled;
    if (HasValue(*from_key, kModeKey, "\"required\"")) return kSslRequired;
  }
  if (const auto from_key = FromKey(content, kBooleanKey)) {
    if (HasValue(*from_key, kBooleanKey, "true")) return kSslRequired;
    if (HasValue(*from_key, kBooleanKey, "false")) return kSslDisabled;
  }
  return std::nullopt;
}

std::string getSSLMode() {
  const char* path = std::getenv("APP_CONF_FILE");
  if (path == nullptr) {
    Warn(kNoFileNamed, kNoFileNamedLine);
    return std::string(kSslDefault);
  }
  std::ifstream file(path);
  if (!file.is_open()) {
    Warn(kFileNotOpened, kFileNotOpenedLine);
    return std::string(kSslDefault);
  }
  const std::string content = ReadWhole(file);
  const std::optional<std::string_view> mode = FindSSLMode(content);
  if (!mode) {
    Warn(kNothingConfigured, kNothingConfiguredLine);
    return std::string(kSslDefault);
  }
  return std::string(*mode);
}

}  // namespace tarn::dbconfig

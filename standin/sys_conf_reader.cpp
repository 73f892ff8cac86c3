// The configuration is a JSON file named by TARN_SYS_CONF:
//
//   {"databases": {"NAME": [{"type": "mysql", "user": "…", "password": "…", "host": "…",
//                            "port": 3306, "service": "…"}, …], …}}
//
// The place in a database's list is its index. Each lookup that finds nothing usable writes one
// warning that names what is missing. All getters may be called from any thread.
#include "platform/sys_conf_reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "platform/log_process.h"
#include "regular_file.h"

namespace {

using nlohmann::json;

constexpr const char* kFileVariable = "TARN_SYS_CONF";
constexpr std::size_t kMaxFileBytes = 16U << 20U;
constexpr int kMaxPort = 65535;

// Why a setting can't be had; what() names file, database and key as far as they matter.
class Unconfigured : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

bool SameTime(const timespec& a, const timespec& b) noexcept {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Whether nothing tells one state of a file from another.
bool SameFile(const struct stat& a, const struct stat& b) noexcept {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         SameTime(a.st_mtim, b.st_mtim) && SameTime(a.st_ctim, b.st_ctim);
}

bool AtRest(const struct stat& status) noexcept {
  constexpr time_t kCoarsestStampSeconds = 2;
  return std::time(nullptr) - std::max(status.st_mtim.tv_sec, status.st_ctim.tv_sec) >
         kCoarsestStampSeconds;
}

// What one reading of the file gave.
struct Configuration {
  Configuration(std::string file, const struct stat& file_status)
      : path(std::move(file)), status(file_status), at_rest(AtRest(file_status)) {}

  std::string path;
  struct stat status;
  // Time stamps are coarse: a file may change again without a trace right after it was read, unless
  // it had long been at rest by then.
  bool at_rest;
  json root;
  // Not empty for a file that was read but is not JSON.
  std::string malformed;
};

std::string ReadAll(tarn::standin::RegularFile& file) {
  constexpr std::size_t kChunkBytes = 64U << 10U;
  std::string text;
  std::size_t count = 0;
  do {
    const std::size_t filled = text.size();
    if (filled > kMaxFileBytes) throw std::system_error(EFBIG, std::generic_category());
    text.resize(filled + kChunkBytes);
    count = file.Read({reinterpret_cast<unsigned char*>(text.data()) + filled, kChunkBytes});
    text.resize(filled + count);
  } while (count == kChunkBytes);
  return text;
}

// "LINE:COLUMN" of a byte, all counted from 1.
std::string Position(const std::string& text, std::size_t byte) {
  const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(byte, text.size() + 1) - 1);
  const auto line = 1 + std::count(text.begin(), end, '\n');
  const auto line_start = std::find(std::make_reverse_iterator(end), text.rend(), '\n').base();
  return std::to_string(line) + ":" + std::to_string(end - line_start + 1);
}

std::shared_ptr<const Configuration> Read(const std::string& path) {
  tarn::standin::RegularFile file(path);
  auto configuration = std::make_shared<Configuration>(path, file.Status());
  const std::string text = ReadAll(file);
  try {
    configuration->root = json::parse(text);
  } catch (const json::parse_error& error) {
    // The parser's own message quotes the file, and with it perhaps a password.
    configuration->malformed =
        path + ":" + Position(text, std::max<std::size_t>(error.byte, 1)) + ": not valid JSON";
  }
  return configuration;
}

// The file's configuration, read again only when the file is another than last time.
std::shared_ptr<const Configuration> Current() {
  static std::mutex lock;
  static std::shared_ptr<const Configuration> last;

  const char* path = std::getenv(kFileVariable);
  if (path == nullptr || *path == '\0') {
    throw Unconfigured(std::string(kFileVariable) + " names no configuration file");
  }
  const std::lock_guard guard(lock);
  struct stat now {};
  const bool unchanged = last && last->at_rest && last->path == path && stat(path, &now) == 0 &&
                         SameFile(last->status, now);
  if (!unchanged) {
    try {
      last = Read(path);
    } catch (const std::system_error& error) {
      throw Unconfigured(std::string(path) + ": " + error.code().message());
    }
  }
  if (!last->malformed.empty()) throw Unconfigured(last->malformed);
  return last;
}

// Hands the setting to `use`, which returns false if it is not what `wanted` says.
template <typename Use>
void WithSetting(const std::string& database, unsigned int index, const char* key,
                 const char* wanted, const LocationInfo& location, Use use) {
  try {
    const auto configuration = Current();
    const std::string& path = configuration->path;
    const auto databases = configuration->root.find("databases");
    if (databases == configuration->root.end() || !databases->is_object()) {
      throw Unconfigured(path + ": no object \"databases\"");
    }
    const std::string where = path + ": database \"" + database + "\"";
    const auto entries = databases->find(database);
    if (entries == databases->end()) throw Unconfigured(where + " is not configured");
    if (!entries->is_array() || index >= entries->size() || !(*entries)[index].is_object()) {
      throw Unconfigured(where + " has no entry " + std::to_string(index));
    }
    const json& entry = (*entries)[index];
    const std::string what = where + ", entry " + std::to_string(index) + ": \"" + key + "\"";
    const auto setting = entry.find(key);
    if (setting == entry.end()) throw Unconfigured(what + " is missing");
    if (!use(*setting)) throw Unconfigured(what + " is not " + wanted);
  } catch (const Unconfigured& error) {
    LogProcess::Warn(error.what(), location);
  }
}

std::string Text(const std::string& database, unsigned int index, const char* key,
                 const LocationInfo& location) {
  std::string text;
  WithSetting(database, index, key, "a text", location, [&text](const json& setting) {
    if (!setting.is_string()) return false;
    text = setting.get_ref<const std::string&>();
    return true;
  });
  return text;
}

}  // namespace

namespace Quillcommon {

SysConfReader& SysConfReader::Instance() {
  static SysConfReader reader;
  return reader;
}

std::string SysConfReader::getDBType(const std::string& dbName, unsigned int index) {
  return Text(dbName, index, "type", LocationInfo("sys_conf_reader.cpp", __func__, __LINE__));
}

std::string SysConfReader::getDBUserName(const std::string& dbName, unsigned int index) {
  return Text(dbName, index, "user", LocationInfo("sys_conf_reader.cpp", __func__, __LINE__));
}

std::string SysConfReader::getDBPassword(const std::string& dbName, unsigned int index) {
  return Text(dbName, index, "password", LocationInfo("sys_conf_reader.cpp", __func__, __LINE__));
}

std::string SysConfReader::getDBAccessHost(const std::string& dbName, unsigned int index) {
  return Text(dbName, index, "host", LocationInfo("sys_conf_reader.cpp", __func__, __LINE__));
}

std::string SysConfReader::getDBServiceName(const std::string& dbName, unsigned int index) {
  return Text(dbName, index, "service", LocationInfo("sys_conf_reader.cpp", __func__, __LINE__));
}

int SysConfReader::getDBAccessPort(const std::string& dbName, unsigned int index) {
  int port = 0;
  WithSetting(dbName, index, "port", "a whole number from 1 to 65535",
              LocationInfo("sys_conf_reader.cpp", __func__, __LINE__),
              [&port](const json& setting) {
                // Every positive whole number of a JSON text is held unsigned.
                if (!setting.is_number_unsigned()) return false;
                const auto number = setting.get<std::uint64_t>();
                if (number < 1 || number > kMaxPort) return false;
                port = static_cast<int>(number);
                return true;
              });
  return port;
}

}  // namespace Quillcommon

// The configuration is a JSON file of at most 1 MiB, named by TARN_SYS_CONF:
//
//   {"databases": {"NAME": [{"type": "mysql", "user": "…", "password": "…", "host": "…",
//                            "port": 3306, "service": "…"}, …], …}}
//
// The index of an entry is its position in the database's list. Every getter reads the file again.
// A lookup that finds nothing usable logs one warning, which names the missing or invalid part. A
// key on the path to the setting that the file holds twice is invalid, since JSON readers differ in
// which of the two they use. Any thread may call.
#include "platform/sys_conf_reader.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "regular_file.h"
#include "standin/warning.h"

namespace {

using nlohmann::json;
using namespace tarn::standin;

constexpr int kMaxPort = 65535;

// The parts on the path to a setting. The number of a part is the number of containers around it.
enum Step : std::size_t { kRoot, kDatabases, kDatabase, kEntry, kSetting };

// "LINE:COLUMN" of a byte. Lines, columns and bytes are counted from 1.
std::string Position(std::string_view text, std::size_t byte) {
  const std::string_view before = text.substr(0, std::max<std::size_t>(byte, 1) - 1);
  // If there is no newline before, rfind returns npos, which counts as -1.
  return std::to_string(1 + std::count(before.begin(), before.end(), '\n')) + ":" +
         std::to_string(before.size() - before.rfind('\n'));
}

// The setting `key`: a text, or a port if `Value` is int. Throws an Error that names the file, the
// database and the key, as far as they matter.
template <typename Value>
Value Find(const std::string& database, unsigned int index, const std::string& key) {
  const auto require = [](bool holds, const std::string& reason) {
    Require(holds, Code::kConfiguration, reason);
  };
  const char* variable = std::getenv("TARN_SYS_CONF");
  const std::string path(variable == nullptr ? "" : variable);
  require(!path.empty(), "TARN_SYS_CONF names no configuration file");
  struct stat status {};
  const SecretBytes bytes = ReadRegularFile(path, status, Code::kConfiguration, path);
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());

  // The key that leads to each step; the root and the entries of a list have none.
  const std::array<std::string, kSetting + 1> keys{"", "databases", database, "", key};
  // The last step found in the file.
  std::size_t reached = kRoot;
  // A key on the path that the file holds twice.
  std::optional<std::string> twice;
  json found;
  // The number of containers on the path that are open, and whether the next value in the innermost
  // is on the path, too.
  std::size_t on_way = 0;
  bool fits = true;
  // The next position in the database's list.
  unsigned int position = 0;
  // The parser calls this for each key, at the beginning of each container, and for each scalar
  // whose key and containers it has accepted by returning true. The parser keeps nothing of the
  // file, so that no text can make it costly: a document tree would also need memory to be
  // destroyed, and without memory the process would end.
  const auto follow = [&](int depth, json::parse_event_t event, const json& value) {
    const auto step = static_cast<std::size_t>(depth);
    on_way = std::min(on_way, step);
    if (step != on_way) return false;
    const bool is_key = event == json::parse_event_t::key;
    if (is_key) {
      fits = value == keys.at(step);
    } else if (step == kEntry) {
      fits = position++ == index;
    }
    if (!fits) return false;
    if (is_key && reached >= step && !twice) twice = keys.at(step);
    reached = std::max(reached, step);
    if (step == kSetting && !is_key) found = value;
    if (step == kSetting || event != (step == kDatabase ? json::parse_event_t::array_start
                                                        : json::parse_event_t::object_start)) {
      return false;
    }
    if (step == kDatabase) position = 0;
    ++on_way;
    return true;
  };
  try {
    [[maybe_unused]] const json nothing = json::parse(text, follow);
    // The parser's own messages quote the file, and with it perhaps a password.
  } catch (const json::parse_error& error) {
    require(false, path + ":" + Position(text, error.byte) + ": not valid JSON");
  } catch (const json::out_of_range&) {
    require(false, path + ": a number beyond the range of a double");
  }
  const std::string named = path + ": database \"" + database + "\"";
  const std::string entry = std::to_string(index);
  const std::string setting = named + ", entry " + entry + ": \"" + key + "\"";
  require(!twice, path + ": \"" + twice.value_or("") + "\" is there twice");
  require(reached >= kDatabases, path + ": no object \"databases\"");
  require(reached >= kDatabase, named + " is not configured");
  require(reached >= kEntry, named + " has no entry " + entry);
  require(reached >= kSetting, setting + " is missing");
  if constexpr (std::is_same_v<Value, int>) {
    // The parser stores every positive whole number as unsigned.
    const auto* const number = found.get_ptr<const json::number_unsigned_t*>();
    require(number != nullptr && *number >= 1 && *number <= kMaxPort,
            setting + " is not a whole number from 1 to 65535");
  } else {
    require(found.is_string(), setting + " is not a text");
  }
  return found.get<Value>();
}

// The setting, or an empty value after a warning. `getter` is the function that the warning names.
template <typename Value = std::string>
Value Get(const std::string& database, unsigned int index, const std::string& key,
          const char* getter) {
  try {
    return Find<Value>(database, index, key);
  } catch (const Error& error) {
    Warn(error, LocationInfo("sys_conf_reader.cpp", getter, __LINE__));
    return Value();
  }
}

}  // namespace

namespace Quillcommon {

SysConfReader& SysConfReader::Instance() {
  static SysConfReader reader;
  return reader;
}

std::string SysConfReader::getDBType(const std::string& dbName, unsigned int index) {
  return Get(dbName, index, "type", __func__);
}
std::string SysConfReader::getDBUserName(const std::string& dbName, unsigned int index) {
  return Get(dbName, index, "user", __func__);
}
std::string SysConfReader::getDBPassword(const std::string& dbName, unsigned int index) {
  return Get(dbName, index, "password", __func__);
}
std::string SysConfReader::getDBAccessHost(const std::string& dbName, unsigned int index) {
  return Get(dbName, index, "host", __func__);
}
std::string SysConfReader::getDBServiceName(const std::string& dbName, unsigned int index) {
  return Get(dbName, index, "service", __func__);
}
int SysConfReader::getDBAccessPort(const std::string& dbName, unsigned int index) {
  return Get<int>(dbName, index, "port", __func__);
}

}  // namespace Quillcommon

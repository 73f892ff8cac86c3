// The configuration is a JSON file of at most 1 MiB, named by TARN_SYS_CONF:
//
//   {"databases": {"NAME": [{"type": "mysql", "user": "…", "password": "…", "host": "…",
//                            "port": 3306, "service": "…"}, …], …}}
//
// The place in a database's list is its index. Every getter reads the file afresh. A lookup that
// finds nothing usable writes one warning that names what is missing. Any thread may call.
#include "platform/sys_conf_reader.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <type_traits>
#include <utility>

#include "platform/log_process.h"
#include "regular_file.h"

namespace {

using nlohmann::json;
using tarn::standin::Code;
using tarn::standin::Error;

constexpr std::size_t kMaxFileBytes = 1U << 20U;
constexpr int kMaxPort = 65535;

// How far the way to a setting leads. Up to kEntry also the number of containers on the way that
// are open while the parser is at that point.
enum Stage : std::size_t { kNowhere, kRoot, kDatabases, kDatabase, kEntry, kSetting };

// Follows the parser down to one setting and keeps nothing else of the file, so that no text can
// make it costly. A document tree would also need memory to be destroyed, and end the process where
// there is none.
struct SettingSearch : json::json_sax_t {
  SettingSearch(const std::string& database, std::size_t entry, const std::string& name)
      : keys{"", "databases", database, "", name}, index(entry) {}

  bool null() override { return Value(nullptr); }
  bool boolean(bool value) override { return Value(value); }
  bool number_integer(number_integer_t value) override { return Value(value); }
  bool number_unsigned(number_unsigned_t value) override { return Value(value); }
  bool number_float(number_float_t value, const string_t& /*text*/) override {
    return Value(value);
  }
  bool string(string_t& value) override { return Value(std::move(value)); }
  bool binary(binary_t& /*value*/) override { return Value(nullptr); }
  bool start_object(std::size_t /*elements*/) override { return Value(nullptr, '{'); }
  bool end_object() override { return Leave(); }
  bool start_array(std::size_t /*elements*/) override { return Value(nullptr, '['); }
  bool end_array() override { return Leave(); }

  bool key(string_t& value) override {
    key_fits = open == on_way && value == keys.at(on_way);
    if (key_fits && on_way == kDatabases) reached = std::max(reached, kDatabase);
    return true;
  }

  // The parser's own message quotes the file, and with it perhaps a password.
  bool parse_error(std::size_t byte, const std::string& /*token*/,
                   const json::exception& error) override {
    constexpr int kNumberOverflow = 406;
    malformed_at = std::max<std::size_t>(byte, 1);
    malformed =
        error.id == kNumberOverflow ? "a number beyond the range of a double" : "not valid JSON";
    return false;
  }

  // A scalar, or the begin of a container with that bracket.
  bool Value(json scalar, char bracket = '\0') {
    const bool is_next = open == on_way && (on_way == kDatabase ? position++ == index : key_fits);
    if (bracket != '\0') ++open;
    if (is_next && on_way == kEntry) {
      setting = std::move(scalar);
      reached = kSetting;
    } else if (is_next && bracket == (on_way == kDatabases ? '[' : '{')) {
      reached = std::max(reached, static_cast<Stage>(++on_way));
      if (bracket == '[') position = 0;
    }
    return true;
  }

  bool Leave() {
    if (open-- == on_way) --on_way;
    return true;
  }

  // The key to follow in each container on the way; a list has none.
  std::array<std::string, kSetting> keys;
  std::size_t index;
  Stage reached = kNowhere;
  // Null for a list or an object.
  json setting;
  // How much of the file, in bytes, was read where the parser gave up, 0 if it did not, and why.
  std::size_t malformed_at = 0;
  const char* malformed = "";
  // Containers that are open, and those among them that are on the way.
  std::size_t open = 0;
  std::size_t on_way = kNowhere;
  bool key_fits = true;
  // In the database's list.
  std::size_t position = 0;
};

// "LINE:COLUMN" of a byte, all counted from 1.
std::string Position(const std::string& text, std::size_t byte) {
  const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(byte, text.size() + 1) - 1);
  const auto line = 1 + std::count(text.begin(), end, '\n');
  const auto line_start = std::find(std::make_reverse_iterator(end), text.rend(), '\n').base();
  return std::to_string(line) + ":" + std::to_string(end - line_start + 1);
}

// A text, or a port for a `Value` of int. Throws Error, which names file, database and key as far
// as they matter.
template <typename Value>
Value Find(const std::string& database, unsigned int index, const std::string& key) {
  const char* variable = std::getenv("TARN_SYS_CONF");
  const std::string path(variable == nullptr ? "" : variable);
  const auto require = [](bool holds, const std::string& reason) {
    Require(holds, Code::kConfiguration, reason);
  };
  require(!path.empty(), "TARN_SYS_CONF names no configuration file");
  std::string text(kMaxFileBytes + 1, '\0');
  struct stat status {};
  text.resize(tarn::standin::ReadRegularFile(
      path, {reinterpret_cast<unsigned char*>(text.data()), text.size()}, status,
      Code::kConfiguration, path));
  require(text.size() <= kMaxFileBytes, path + ": larger than 1 MiB");

  SettingSearch search(database, index, key);
  json::sax_parse(text, &search);
  require(search.malformed_at == 0,
          path + ":" + Position(text, std::max<std::size_t>(search.malformed_at, 1)) + ": " +
              search.malformed);
  const std::string named = path + ": database \"" + database + "\"";
  const std::string entry = std::to_string(index);
  const std::string setting = named + ", entry " + entry + ": \"" + key + "\"";
  require(search.reached > kRoot, path + ": no object \"databases\"");
  require(search.reached > kDatabases, named + " is not configured");
  require(search.reached > kDatabase, named + " has no entry " + entry);
  require(search.reached > kEntry, setting + " is missing");
  if constexpr (std::is_same_v<Value, int>) {
    // Every positive whole number of a JSON text is held unsigned.
    const auto* const number = search.setting.get_ptr<const json::number_unsigned_t*>();
    require(number != nullptr && *number >= 1 && *number <= kMaxPort,
            setting + " is not a whole number from 1 to 65535");
  } else {
    require(search.setting.is_string(), setting + " is not a text");
  }
  return search.setting.get<Value>();
}

// The setting, or an empty value after a warning. `getter` names where the warning comes from.
template <typename Value = std::string>
Value Get(const std::string& database, unsigned int index, const std::string& key,
          const char* getter) {
  try {
    return Find<Value>(database, index, key);
  } catch (const Error& error) {
    LogProcess::Warn(error.what(), LocationInfo("sys_conf_reader.cpp", getter, __LINE__));
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

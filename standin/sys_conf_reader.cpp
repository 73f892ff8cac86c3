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
#include <stdexcept>
#include <string>

#include "platform/log_process.h"
#include "regular_file.h"

namespace {

using nlohmann::json;

constexpr const char* kFileVariable = "TARN_SYS_CONF";
constexpr std::size_t kMaxFileBytes = 1U << 20U;
constexpr int kMaxPort = 65535;

// Follows the parser down to one setting and keeps nothing else of the file, so that no text can
// make it costly. A document tree would also need memory to be destroyed, and end the process where
// there is none.
class SettingSearch : public nlohmann::json_sax<json> {
 public:
  // How far the way to the setting is there. From kRoot to kEntry also the number of containers on
  // the way that are open while the parser is at that point.
  enum Stage : std::size_t { kNowhere, kRoot, kDatabases, kDatabase, kEntry, kSetting };

  // Borrows both texts.
  SettingSearch(const std::string& database, std::size_t index, const std::string& key)
      : keys_{nullptr, &kDatabasesKey, &database, nullptr, &key}, index_(index) {}

  Stage Reached() const noexcept { return reached_; }
  // Null for a list or an object.
  const json& Setting() const noexcept { return setting_; }
  // How much of the file, in bytes, was read where the parser gave up, 0 if it did not, and why.
  std::size_t MalformedAt() const noexcept { return malformed_at_; }
  const char* Reason() const noexcept { return reason_; }

  bool null() override { return Scalar(nullptr); }
  bool boolean(bool value) override { return Scalar(value); }
  bool number_integer(number_integer_t value) override { return Scalar(value); }
  bool number_unsigned(number_unsigned_t value) override { return Scalar(value); }
  bool number_float(number_float_t value, const string_t& /*text*/) override {
    return Scalar(value);
  }
  bool string(string_t& value) override { return Scalar(value); }
  bool binary(binary_t& /*value*/) override { return Scalar(nullptr); }
  bool start_object(std::size_t /*elements*/) override { return Enter(false); }
  bool end_object() override { return Leave(); }
  bool start_array(std::size_t /*elements*/) override { return Enter(true); }
  bool end_array() override { return Leave(); }

  bool key(string_t& value) override {
    key_fits_ = depth_ == entered_ && value == *keys_.at(entered_);
    if (key_fits_ && entered_ == kDatabases) Reach(kDatabase);
    return true;
  }

  // The parser's own message quotes the file, and with it perhaps a password.
  bool parse_error(std::size_t position, const std::string& /*token*/,
                   const json::exception& error) override {
    constexpr int kNumberOverflow = 406;
    malformed_at_ = std::max<std::size_t>(position, 1);
    reason_ =
        error.id == kNumberOverflow ? "a number beyond the range of a double" : "not valid JSON";
    return false;
  }

 private:
  void Reach(std::size_t stage) { reached_ = std::max(reached_, static_cast<Stage>(stage)); }

  // Whether the value that comes now is the next on the way.
  bool IsNext() {
    if (depth_ != entered_) return false;
    if (entered_ == kDatabase) return position_++ == index_;
    return entered_ == kNowhere || key_fits_;
  }

  template <typename Value>
  bool Scalar(const Value& value) {
    if (IsNext() && entered_ == kEntry) {
      setting_ = value;
      Reach(kSetting);
    }
    return true;
  }

  bool Enter(bool list) {
    if (IsNext()) {
      if (entered_ == kEntry) {
        setting_ = nullptr;
        Reach(kSetting);
      } else if (list == (entered_ == kDatabases)) {
        Reach(++entered_);
        if (list) position_ = 0;
      }
    }
    ++depth_;
    return true;
  }

  bool Leave() {
    if (depth_-- == entered_) --entered_;
    return true;
  }

  inline static const std::string kDatabasesKey = "databases";

  // The key to follow in each container on the way; a list has none.
  std::array<const std::string*, kSetting> keys_;
  std::size_t index_;
  Stage reached_ = kNowhere;
  json setting_;
  std::size_t malformed_at_ = 0;
  const char* reason_ = "";
  // Containers that are open, and those among them that are on the way.
  std::size_t depth_ = 0;
  std::size_t entered_ = 0;
  bool key_fits_ = false;
  // In the database's list.
  std::size_t position_ = 0;
};

// "LINE:COLUMN" of a byte, all counted from 1.
std::string Position(const std::string& text, std::size_t byte) {
  const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(byte, text.size() + 1) - 1);
  const auto line = 1 + std::count(text.begin(), end, '\n');
  const auto line_start = std::find(std::make_reverse_iterator(end), text.rend(), '\n').base();
  return std::to_string(line) + ":" + std::to_string(end - line_start + 1);
}

// Throws std::runtime_error.
std::string ReadConfiguration(const std::string& path) {
  std::string text(kMaxFileBytes + 1, '\0');
  struct stat status {};
  text.resize(tarn::standin::ReadRegularFile(
      path, {reinterpret_cast<unsigned char*>(text.data()), text.size()}, status));
  if (text.size() > kMaxFileBytes) throw std::runtime_error(path + ": larger than 1 MiB");
  return text;
}

// What a setting must be.
struct Kind {
  const char* name;
  bool (*fits)(const json& setting);
};

constexpr Kind kText{"a text", [](const json& setting) { return setting.is_string(); }};
constexpr Kind kPort{"a whole number from 1 to 65535", [](const json& setting) {
                       // Every positive whole number of a JSON text is held unsigned.
                       if (!setting.is_number_unsigned()) return false;
                       const auto number = setting.get<std::uint64_t>();
                       return number >= 1 && number <= kMaxPort;
                     }};

// Throws std::runtime_error, which names file, database and key as far as they matter.
json Find(const std::string& database, unsigned int index, const std::string& key,
          const Kind& kind) {
  const char* variable = std::getenv(kFileVariable);
  if (variable == nullptr || *variable == '\0') {
    throw std::runtime_error(std::string(kFileVariable) + " names no configuration file");
  }
  const std::string path(variable);
  const std::string text = ReadConfiguration(path);
  SettingSearch search(database, index, key);
  json::sax_parse(text, &search);
  if (search.MalformedAt() != 0) {
    throw std::runtime_error(path + ":" + Position(text, search.MalformedAt()) + ": " +
                             search.Reason());
  }
  const std::string named = path + ": database \"" + database + "\"";
  const std::string number = std::to_string(index);
  const std::string setting = named + ", entry " + number + ": \"" + key + "\"";
  switch (search.Reached()) {
    case SettingSearch::kNowhere:
    case SettingSearch::kRoot:
      throw std::runtime_error(path + ": no object \"databases\"");
    case SettingSearch::kDatabases:
      throw std::runtime_error(named + " is not configured");
    case SettingSearch::kDatabase:
      throw std::runtime_error(named + " has no entry " + number);
    case SettingSearch::kEntry:
      throw std::runtime_error(setting + " is missing");
    case SettingSearch::kSetting:
      break;
  }
  if (!kind.fits(search.Setting())) throw std::runtime_error(setting + " is not " + kind.name);
  return search.Setting();
}

// The setting, or an empty value after a warning. `getter` names where the warning comes from.
template <typename Value>
Value Get(const std::string& database, unsigned int index, const std::string& key, const Kind& kind,
          const char* getter, int line) {
  try {
    return Find(database, index, key, kind).get<Value>();
  } catch (const std::runtime_error& error) {
    LogProcess::Warn(error.what(), LocationInfo("sys_conf_reader.cpp", getter, line));
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
  return Get<std::string>(dbName, index, "type", kText, __func__, __LINE__);
}

std::string SysConfReader::getDBUserName(const std::string& dbName, unsigned int index) {
  return Get<std::string>(dbName, index, "user", kText, __func__, __LINE__);
}

std::string SysConfReader::getDBPassword(const std::string& dbName, unsigned int index) {
  return Get<std::string>(dbName, index, "password", kText, __func__, __LINE__);
}

std::string SysConfReader::getDBAccessHost(const std::string& dbName, unsigned int index) {
  return Get<std::string>(dbName, index, "host", kText, __func__, __LINE__);
}

std::string SysConfReader::getDBServiceName(const std::string& dbName, unsigned int index) {
  return Get<std::string>(dbName, index, "service", kText, __func__, __LINE__);
}

int SysConfReader::getDBAccessPort(const std::string& dbName, unsigned int index) {
  return Get<int>(dbName, index, "port", kPort, __func__, __LINE__);
}

}  // namespace Quillcommon

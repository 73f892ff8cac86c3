#include "logs/format_splitters.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "logs/line_splitter.h"
#include "logs/postgres_messages.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

// Reads the message in an object such as {"user":"shop","error_severity":"LOG"}. Objects and arrays
// within the object are left out.
class Record final : public nlohmann::json_sax<nlohmann::json> {
 public:
  // False if `line` is not one object.
  bool Read(std::string_view line) {
    message_ = {};
    timestamp_.clear();
    depth_ = 0;
    target_ = nullptr;
    if (!line.starts_with('{') || !nlohmann::json::sax_parse(line, this)) return false;
    message_.time = LogTimeAt(timestamp_);
    return true;
  }

  // The message in the last object that was read.
  const PostgresMessage& Message() const noexcept { return message_; }

  bool null() override { return true; }
  bool boolean(bool /*value*/) override { return true; }
  bool number_integer(number_integer_t value) override { return Take(std::to_string(value)); }
  bool number_unsigned(number_unsigned_t value) override { return Take(std::to_string(value)); }
  bool number_float(number_float_t /*value*/, const string_t& text) override { return Take(text); }
  bool string(string_t& value) override { return Take(std::move(value)); }
  bool binary(binary_t& /*value*/) override { return true; }
  bool start_object(std::size_t /*size*/) override {
    ++depth_;
    return true;
  }
  bool end_object() override {
    --depth_;
    return true;
  }
  bool start_array(std::size_t size) override { return start_object(size); }
  bool end_array() override { return end_object(); }
  bool key(string_t& name) override {
    struct Key {
      std::string_view name;
      std::string PostgresMessage::*text;
    };
    static constexpr std::array<Key, 10> kKeys{{{"session_id", &PostgresMessage::session},
                                                {"user", &PostgresMessage::user},
                                                {"dbname", &PostgresMessage::database},
                                                {"remote_host", &PostgresMessage::host},
                                                {"error_severity", &PostgresMessage::severity},
                                                {"state_code", &PostgresMessage::sqlstate},
                                                {"message", &PostgresMessage::text},
                                                {"detail", &PostgresMessage::detail},
                                                {"statement", &PostgresMessage::statement},
                                                {"query_id", &PostgresMessage::query_id}}};
    target_ = name == "timestamp" ? &timestamp_ : nullptr;
    const auto* const key = std::find_if(kKeys.begin(), kKeys.end(),
                                         [&name](const Key& one) { return one.name == name; });
    if (key != kKeys.end()) target_ = &(message_.*key->text);
    return true;
  }
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    return false;
  }

 private:
  bool Take(std::string value) {
    if (target_ != nullptr && depth_ == 1) *target_ = std::move(value);
    return true;
  }

  PostgresMessage message_;
  std::string timestamp_;
  std::size_t depth_ = 0;
  // The text that the value of the last key sets; null if the key is not used.
  std::string* target_ = nullptr;
};

class JsonLogSplitter final : public LineSplitter {
 public:
  explicit JsonLogSplitter(const SplitterOptions& options)
      : LineSplitter(options), messages_(options.max_statement) {}

  std::string WhyEmpty() const override { return messages_.WhyEmpty(); }

 private:
  void EndInput() override { messages_.Flush(Out()); }
  std::string WhyCut(bool line_ended) const override {
    return !line_ended && damaged_last_ ? "ends within an entry" : "";
  }

  void TakeLine(std::string_view line) override {
    line = Trimmed(line);
    if (line.empty()) return;
    if (LineIsCut()) {
      Out().CountTooLong();
      return;
    }
    damaged_last_ = !record_.Read(line) || record_.Message().severity.empty();
    if (damaged_last_) {
      ++Out().damaged;
      return;
    }
    messages_.Take(record_.Message(), Out());
  }

  PostgresMessages messages_;
  Record record_;
  bool damaged_last_ = false;
};

}  // namespace

std::unique_ptr<Splitter> MakeJsonLogSplitter(const SplitterOptions& options) {
  return std::make_unique<JsonLogSplitter>(options);
}

bool BeginsJsonLogRecord(std::string_view line) noexcept {
  return line.starts_with("{\"timestamp\":\"") &&
         line.find("\"error_severity\":") != std::string_view::npos;
}

}  // namespace tarn::host

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

// The values of an object's keys that a message needs. Those of objects within it are passed over.
class Record final : public nlohmann::json_sax<nlohmann::json> {
 public:
  enum Key : std::size_t {
    kTime,
    kSession,
    kUser,
    kDatabase,
    kHost,
    kSeverity,
    kSqlstate,
    kMessage,
    kDetail,
    kStatement,
    kQueryId,
    kKeys
  };

  // False when `line` is not one object.
  bool Read(std::string_view line) {
    for (std::string& value : values_) value.clear();
    depth_ = 0;
    key_ = kKeys;
    return line.starts_with('{') && nlohmann::json::sax_parse(line, this);
  }

  const std::string& operator[](Key key) const noexcept { return values_[key]; }

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
    static constexpr std::array<std::string_view, kKeys> kNames{
        "timestamp",  "session_id", "user",   "dbname",    "remote_host", "error_severity",
        "state_code", "message",    "detail", "statement", "query_id"};
    const auto* const found = std::find(kNames.begin(), kNames.end(), name);
    key_ = static_cast<std::size_t>(found - kNames.begin());
    return true;
  }
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    return false;
  }

 private:
  bool Take(std::string value) {
    if (key_ < kKeys && depth_ == 1) values_[key_] = std::move(value);
    return true;
  }

  std::size_t depth_ = 0;
  std::size_t key_ = kKeys;
  std::array<std::string, kKeys> values_;
};

class JsonLogSplitter final : public LineSplitter {
 public:
  explicit JsonLogSplitter(const SplitterOptions& options)
      : LineSplitter(options), messages_(options.max_statement) {}

  std::string WhyEmpty() const override { return messages_.WhyEmpty(); }

 private:
  void BeginFound() override { messages_.BeginFound(); }
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
    damaged_last_ = !record_.Read(line) || record_[Record::kSeverity].empty();
    if (damaged_last_) {
      ++Out().damaged;
      return;
    }
    messages_.Take({.time = LogTimeAt(record_[Record::kTime]),
                    .session = record_[Record::kSession],
                    .user = record_[Record::kUser],
                    .database = record_[Record::kDatabase],
                    .host = record_[Record::kHost],
                    .severity = record_[Record::kSeverity],
                    .sqlstate = record_[Record::kSqlstate],
                    .text = record_[Record::kMessage],
                    .detail = record_[Record::kDetail],
                    .statement = record_[Record::kStatement],
                    .query_id = record_[Record::kQueryId]},
                   Out());
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

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "logs/formats.h"
#include "logs/line_splitter.h"
#include "logs/postgres_messages.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

// Takes the values of an object such as {"user":"shop","error_severity":"LOG"} from the JSON
// library's parser. Objects and arrays within the object are left out.
struct Record {
  bool null() { return true; }
  bool boolean(bool /*value*/) { return true; }
  bool number_integer(std::int64_t value) { return Take(std::to_string(value)); }
  bool number_unsigned(std::uint64_t value) { return Take(std::to_string(value)); }
  bool number_float(double /*value*/, const std::string& text) { return Take(text); }
  bool string(std::string& value) { return Take(std::move(value)); }
  bool binary(nlohmann::json::binary_t& /*value*/) { return true; }
  bool start_object(std::size_t /*size*/) { return ++depth > 0; }
  bool end_object() { return depth-- > 0; }
  bool start_array(std::size_t size) { return start_object(size); }
  bool end_array() { return end_object(); }
  bool key(const std::string& name) {
    static const std::map<std::string_view, std::string PostgresMessage::*> kKeys{
        {"session_id", &PostgresMessage::session},
        {"user", &PostgresMessage::user},
        {"dbname", &PostgresMessage::database},
        {"remote_host", &PostgresMessage::host},
        {"error_severity", &PostgresMessage::severity},
        {"state_code", &PostgresMessage::sqlstate},
        {"message", &PostgresMessage::text},
        {"detail", &PostgresMessage::detail},
        {"statement", &PostgresMessage::statement},
        {"query_id", &PostgresMessage::query_id}};
    const auto known = kKeys.find(name);
    target = known != kKeys.end()  ? &(message.*known->second)
             : name == "timestamp" ? &timestamp
                                   : nullptr;
    return true;
  }
  static bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                          const nlohmann::json::exception& /*error*/) {
    return false;
  }

  bool Take(std::string value) {
    if (target != nullptr && depth == 1) *target = std::move(value);
    return true;
  }

  PostgresMessage message = {};
  std::string timestamp = {};
  std::size_t depth = 0;
  // The text that the value of the last key sets; null if the key is not used.
  std::string* target = nullptr;
};

class JsonLogSplitter final : public LineSplitter {
  void TakeLine(std::string_view line) override {
    line = Trimmed(WithoutHole(line));
    if (line.empty()) return;
    if (LineIsCut()) return Out().CountTooLong();
    Record record;
    if (!nlohmann::json::sax_parse(line, &record) || record.message.severity.empty()) {
      ++Out().summary.damaged;
      if (!LineEnded()) Out().summary.problem = "ends within an entry";
      return;
    }
    record.message.time = LogTimeAt(record.timestamp);
    messages_.Take(std::move(record.message), Out());
  }

  void EndInput() override { messages_.Flush(Out()); }

  PostgresMessages messages_;
};

}  // namespace

std::unique_ptr<Splitter> MakeJsonLogSplitter(const SplitterOptions& /*options*/) {
  return std::make_unique<JsonLogSplitter>();
}

bool BeginsJsonLogRecord(std::string_view line) {
  return line.starts_with("{\"timestamp\":\"") && line.find("\"error_severity\":") < line.size();
}

}  // namespace tarn::host

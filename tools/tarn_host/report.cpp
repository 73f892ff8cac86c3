#include "tarn_host/report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "plugin/normalize_call.h"
#include "shapes/fingerprint.h"
#include "sql/errors.h"
#include "tarn_host/json.h"

namespace tarn::host {
namespace {

using Json = nlohmann::ordered_json;

// The first member of a report. Its value is the version of the form.
constexpr const char* kMark = "tarn_host_report";
constexpr int kVersion = 1;
// Names of members that are written and read in more than one function.
constexpr const char* kExact = "exact";
constexpr const char* kFoldDigits = "fold_digits";
constexpr const char* kKeys = "keys";
constexpr const char* kGroupBy = "group_by";
constexpr const char* kOthers = "others";
constexpr int kHexadecimal = 16;

struct ExampleText {
  const char* name;
  std::string Example::*value;
};
constexpr std::array<ExampleText, 5> kExampleTexts{{{"example", &Example::text},
                                                    {"example_user", &Example::user},
                                                    {"example_database", &Example::database},
                                                    {"example_host", &Example::host},
                                                    {"example_parameters", &Example::parameters}}};

// Statements are bytes, JSON is UTF-8. A text that is not UTF-8 is kept a second time, in
// hexadecimal digits.
std::string BytesMember(const std::string& name) { return name + "_bytes"; }

void PutText(Json& json, const std::string& name, const std::string& text) {
  json[name] = text;
  try {
    Json(text).dump();
  } catch (const Json::type_error&) {
    std::string digits;
    for (const char c : text) {
      char byte[3];
      std::snprintf(byte, sizeof byte, "%02x",
                    static_cast<unsigned>(static_cast<unsigned char>(c)));
      digits += byte;
    }
    json[BytesMember(name)] = digits;
  }
}

std::string GetText(const Json& json, const std::string& name) {
  const auto digits = json.find(BytesMember(name));
  if (digits == json.end()) return json.value(name, "");
  const auto& all = digits->get_ref<const std::string&>();
  std::string text;
  for (std::size_t at = 0; at < all.size(); at += 2) {
    text += static_cast<char>(std::stoi(all.substr(at, 2), nullptr, kHexadecimal));
  }
  return text;
}

// Refuses a number that no report of ours holds, since sums would not be exact any more.
std::uint64_t ToNumber(const Json& json) {
  if (!json.is_number_unsigned() || json.get<std::uint64_t>() > kMostSum) {
    throw std::invalid_argument("not a count: " + json.dump());
  }
  return json.get<std::uint64_t>();
}

std::uint64_t GetNumber(const Json& json, const char* name) {
  const auto number = json.find(name);
  return number == json.end() ? 0 : ToNumber(*number);
}

constexpr double kMicrosecondsPerSecond = 1e6;

double Seconds(std::uint64_t microseconds) noexcept {
  return static_cast<double>(microseconds) / kMicrosecondsPerSecond;
}

std::optional<std::uint64_t> GetMicroseconds(const Json& json, const char* name) {
  const auto seconds = json.find(name);
  if (seconds == json.end()) return std::nullopt;
  if (!seconds->is_number() || seconds->get<double>() < 0) {
    throw std::invalid_argument("not a time: " + seconds->dump());
  }
  return TimeStatistics::Microseconds(seconds->get<double>());
}

// "2026-11-24T09:05:29.5325Z", or without a zone if the log does not record one.
std::string IsoTime(const LogTime& time) {
  std::string text = FormatLogTime({time.wall_microseconds, std::nullopt});
  text[text.find(' ')] = 'T';
  constexpr std::int64_t kMicroseconds = 1'000'000;
  const std::int64_t part =
      (time.wall_microseconds % kMicroseconds + kMicroseconds) % kMicroseconds;
  if (part != 0) {
    char fraction[16];
    std::snprintf(fraction, sizeof fraction, ".%06d", static_cast<int>(part));
    text += fraction;
    text.erase(text.find_last_not_of('0') + 1);
  }
  if (time.offset_seconds) {
    const std::string whole = FormatLogTime(time);
    const std::string zone = whole.substr(std::string_view("2026-11-24 09:05:29").size());
    text += zone.empty() ? "Z" : zone;
  }
  return text;
}

void PutTime(Json& json, const char* name, const std::optional<LogTime>& time) {
  if (time) json[name] = IsoTime(*time);
}

std::optional<LogTime> GetTime(const Json& json, const char* name) {
  const auto text = json.find(name);
  if (text == json.end()) return std::nullopt;
  const auto time = LogTimeAt(text->get_ref<const std::string&>());
  if (!time) throw std::invalid_argument("not a time: " + text->dump());
  return time;
}

void PutCounters(Json& json, const Counters& counters) {
  json["count"] = counters.count;
  const TimeStatistics& times = counters.times;
  if (times.Known()) {
    json["total_seconds"] = Seconds(times.total);
    json["mean_seconds"] = Seconds(times.Mean());
    json["p95_seconds"] = Seconds(times.Percentile95());
    json["max_seconds"] = Seconds(times.max);
  }
  if (counters.lock_microseconds) json["lock_seconds"] = Seconds(*counters.lock_microseconds);
  for (const RowCounter& rows : kRowCounters) {
    if (counters.*rows.value) json[rows.name] = *(counters.*rows.value);
  }
  PutTime(json, "first_seen", counters.first_seen);
  PutTime(json, "last_seen", counters.last_seen);
}

// All that a shape's sum needs, and its id.
Json ShapeJson(const ShapeKey& key, const Shape& shape) {
  Json json;
  PutCounters(json, shape);
  for (const auto& [bound, number] : shape.times.classes) {
    json["histogram"][Json(Seconds(bound)).dump()] = number;
  }
  for (const auto& [error, number] : shape.errors) json["errors"][error] = number;
  if (!shape.query_ids.empty()) json["query_ids"] = shape.query_ids;
  if (!shape.keys.empty()) {
    json[kKeys] = shape.keys.size();
    for (const std::uint64_t fingerprint : shape.keys) {
      json["key_fingerprints"].push_back(Hexadecimal(fingerprint));
    }
  }
  json["id"] = Hexadecimal(Fingerprint(key.shape));
  if (!key.group.empty()) PutText(json, "group", key.group);
  PutText(json, "shape", key.shape);
  return json;
}

void PutExample(Json& json, const Example& example) {
  for (const ExampleText& text : kExampleTexts) {
    const std::string& value = example.*text.value;
    if (!value.empty() || text.value == &Example::text) PutText(json, text.name, value);
  }
  if (example.microseconds) json["example_seconds"] = Seconds(*example.microseconds);
  PutTime(json, "example_time", example.time);
}

void AddShape(const Json& json, ShapeCount& count) {
  Shape shape;
  shape.count = GetNumber(json, "count");
  shape.times.total = GetMicroseconds(json, "total_seconds").value_or(0);
  shape.times.max = GetMicroseconds(json, "max_seconds").value_or(0);
  // Each must outlive the loop over its items.
  const Json histogram = json.value("histogram", Json::object());
  const Json errors = json.value("errors", Json::object());
  for (const auto& [bound, number] : histogram.items()) {
    const std::uint64_t durations = ToNumber(number);
    shape.times
        .classes[TimeStatistics::Microseconds(std::abs(std::strtod(bound.c_str(), nullptr)))] =
        durations;
    shape.times.count = CappedSum(shape.times.count, durations);
  }
  shape.lock_microseconds = GetMicroseconds(json, "lock_seconds");
  for (const RowCounter& rows : kRowCounters) {
    if (json.contains(rows.name)) shape.*rows.value = GetNumber(json, rows.name);
  }
  shape.first_seen = GetTime(json, "first_seen");
  shape.last_seen = GetTime(json, "last_seen");
  for (const auto& [error, number] : errors.items()) {
    shape.errors[error] = ToNumber(number);
    shape.failures = CappedSum(shape.failures, shape.errors[error]);
  }
  for (const Json& id : json.value("query_ids", Json::array())) {
    shape.query_ids.insert(id.get<std::string>());
  }
  for (const Json& key : json.value("key_fingerprints", Json::array())) {
    shape.keys.insert(std::stoull(key.get<std::string>(), nullptr, kHexadecimal));
  }
  Example& example = shape.example.emplace();
  for (const ExampleText& text : kExampleTexts) example.*text.value = GetText(json, text.name);
  example.microseconds = GetMicroseconds(json, "example_seconds");
  example.time = GetTime(json, "example_time");
  count.counted = CappedSum(count.counted, shape.count);
  count.shapes[{GetText(json, "group"), GetText(json, "shape")}] += shape;
}

std::string Indented(const Json& json) {
  std::string lines = JsonText(json);
  for (std::size_t at = 0; (at = lines.find('\n', at)) != std::string::npos; ++at) {
    lines.insert(at + 1, "    ");
  }
  return lines;
}

// Writes `head` with one more member, a list. Its elements are made and written one by one, so that
// they are never all in memory.
template <typename Elements, typename MakeElement>
void WriteList(const Json& head, const char* name, const Elements& elements,
               const MakeElement& make, Output& output) {
  std::string open = JsonText(head);
  open.erase(open.rfind('\n'));
  output.Write(open + ",\n  \"" + name + "\": [");
  const char* between = "\n    ";
  for (const auto& element : elements) {
    output.Write(between + Indented(make(element)));
    between = ",\n    ";
  }
  output.Write(elements.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

}  // namespace

void WriteReport(const ShapeCount& count, const RankOptions& options, const CountingRule& rule,
                 impl_dao::CProductInterface& product, Output& output) {
  const Ranking ranking = Rank(count, options);
  const auto put_share = [&ranking](Json& json, const Counters& counters) {
    constexpr double kPrecision = 1e4;
    json["share"] = std::round(ranking.ShareOf(counters) * kPrecision) / kPrecision;
  };
  Json head{{kMark, kVersion}};
  if (rule.exact) head[kExact] = true;
  if (rule.fold_digits) head[kFoldDigits] = true;
  if (rule.keys) head[kKeys] = true;
  if (rule.group_by) head[kGroupBy] = NameOf(*rule.group_by);
  head["statements"] = count.counted;
  head["failed"] = count.failed;
  head["shape_count"] = count.shapes.size();
  PutTime(head, "first_time", count.first_time);
  PutTime(head, "last_time", count.last_time);
  if (ranking.other_shapes > 0) {
    Json others;
    put_share(others, ranking.others);
    PutCounters(others, ranking.others);
    others["shape_count"] = ranking.other_shapes;
    head[kOthers] = std::move(others);
  }
  WriteList(
      head, "shapes", ranking.shown,
      [&](const ShapeEntry* entry) {
        const auto& [key, shape] = *entry;
        Json json = ShapeJson(key, shape);
        put_share(json, shape);
        std::string canonical = shape.example->text;
        json["canonical"] = CallNormalize(product, canonical) ? Json() : Json(canonical);
        PutExample(json, *shape.example);
        return json;
      },
      output);
}

void WriteComparison(const Comparison& comparison, Output& output) {
  const auto counters = [](const Counters& one) {
    Json json;
    PutCounters(json, one);
    return json;
  };
  WriteList(
      Json{{"shape_count", comparison.shape_count},
           {"before", counters(comparison.before)},
           {"after", counters(comparison.after)}},
      "changes", comparison.changes,
      [&](const ShapeChange& shape) {
        Json json{{"change", NameOf(shape.change)},
                  {"id", Hexadecimal(Fingerprint(shape.key->shape))}};
        if (!shape.key->group.empty()) json["group"] = shape.key->group;
        json["shape"] = shape.key->shape;
        if (shape.change != Change::kNew) json["before"] = counters(shape.before);
        if (shape.change != Change::kGone) json["after"] = counters(shape.after);
        return json;
      },
      output);
}

bool BeginsReport(std::string_view head) noexcept {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto skip = [&head, kBlanks](std::string_view token) {
    head.remove_prefix(std::min(head.find_first_not_of(kBlanks), head.size()));
    if (!head.starts_with(token)) return false;
    head.remove_prefix(token.size());
    return true;
  };
  return skip("{") && skip("\"") && head.starts_with(kMark);
}

ShapeCount ReadReport(const std::string& name, std::string_view text, const CountingRule& rule) {
  // Names the input and not the library's error class.
  const auto fail = [&name](const std::string& reason) { throw InputError(name + ": " + reason); };
  ShapeCount count;
  CountingRule counted;
  try {
    // Shapes are added one by one, so that their JSON is never in memory all at once.
    constexpr int kShapeDepth = 2;
    const auto take_shape = [&count](int depth, Json::parse_event_t event, Json& json) {
      // Values of a histogram are the deepest of a report; deeper ones would exhaust the stack.
      if (depth > kShapeDepth + 2) throw std::invalid_argument("too deep");
      if (depth != kShapeDepth || event != Json::parse_event_t::object_end) return true;
      AddShape(json, count);
      return false;
    };
    const Json head = Json::parse(text, take_shape);
    if (head.value(kMark, 0) != kVersion) fail("not a report of this version");
    counted.exact = head.value(kExact, false);
    counted.fold_digits = head.value(kFoldDigits, false);
    counted.keys = head.value(kKeys, false);
    for (std::size_t i = 0; i < kDetails; ++i) {
      const auto detail = static_cast<Detail>(i);
      if (head.value(kGroupBy, "") == NameOf(detail)) counted.group_by = detail;
    }
    if (head.contains(kOthers))
      fail("the report was made with --top or --min-count and lacks shapes");
    count.failed = GetNumber(head, "failed");
    count.first_time = GetTime(head, "first_time");
    count.last_time = GetTime(head, "last_time");
  } catch (const Json::parse_error&) {
    fail("the report is damaged or ends too early");
  } catch (const Json::exception& error) {
    fail(std::string("the report is damaged: ") + error.what());
  } catch (const std::logic_error& error) {
    fail(std::string("the report is damaged: ") + error.what());
  }
  if (counted != rule)
    fail("the report was made with other --exact, --fold-digits, --keys or --group-by");
  return count;
}

}  // namespace tarn::host

#include "tarn_host/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "plugin/normalize_call.h"
#include "shapes/fingerprint.h"
#include "sql/errors.h"
#include "tarn_host/json.h"

namespace tarn::host {
namespace {

// Keeps the members in the order in which they were added, and searches all of them for a name.
using Json = nlohmann::ordered_json;
// Finds a member in logarithmic time, since a stranger may have written the members.
using ReadJson = nlohmann::json;

// The first member of a report. Its value is the version of the form.
constexpr const char* kMark = "tarn_host_report";
constexpr int kVersion = 1;
// Names of members that are written and read in more than one function.
constexpr const char* kExact = "exact";
constexpr const char* kFoldDigits = "fold_digits";
constexpr const char* kKeys = "keys";
constexpr const char* kGroupBy = "group_by";
constexpr const char* kOthers = "others";

// Statements are bytes, JSON is UTF-8. A text that is not UTF-8 is kept a second time, in
// hexadecimal digits.
std::string BytesMember(const std::string& name) { return name + "_bytes"; }

constexpr double kMicrosecondsPerSecond = 1e6;

double Seconds(std::uint64_t microseconds) noexcept {
  return static_cast<double>(microseconds) / kMicrosecondsPerSecond;
}

// "2026-11-24T09:05:29.5325Z", or without a zone if the log does not record one.
std::string IsoTime(const LogTime& time) {
  constexpr std::string_view kSecond = "2026-11-24 09:05:29";
  constexpr std::int64_t kMicroseconds = 1'000'000;
  const std::int64_t part =
      (time.wall_microseconds % kMicroseconds + kMicroseconds) % kMicroseconds;
  std::string fraction = part == 0 ? "" : fmt::format(".{:06}", part);
  fraction.erase(fraction.find_last_not_of('0') + 1);
  std::string text = FormatLogTime(time).insert(kSecond.size(), fraction);
  text[kSecond.find(' ')] = 'T';
  return text;
}

// Adds members to a JSON object. A member without a value is left out.
struct Writer {
  void Number(const char* name, const std::optional<std::uint64_t>& number) {
    if (number) json[name] = *number;
  }
  void Duration(const char* name, const std::optional<std::uint64_t>& microseconds) {
    if (microseconds) json[name] = Seconds(*microseconds);
  }
  void Time(const char* name, const std::optional<LogTime>& time) {
    if (time) json[name] = IsoTime(*time);
  }
  void Text(const std::string& name, const std::string& text) {
    json[name] = text;
    try {
      std::ostream(nullptr) << json[name];
    } catch (const Json::type_error&) {
      const std::vector<unsigned char> bytes(text.begin(), text.end());
      json[BytesMember(name)] = fmt::format("{:02x}", fmt::join(bytes, ""));
    }
  }
  void Detail(const char* name, const std::string& text) {
    if (!text.empty()) Text(name, text);
  }
  void Times(const TimeStatistics& times) {
    if (!times.Known()) return;
    Duration("total_seconds", times.total);
    Duration("mean_seconds", times.Mean());
    Duration("p95_seconds", times.Percentile95());
    Duration("max_seconds", times.max);
  }

  Json& json;
};

[[noreturn]] void Refuse(const std::string& kind, const ReadJson& json) {
  throw std::invalid_argument("not a " + kind + ": " + Fitted(json.dump(), 60));
}

// Refuses a number that no report of ours holds, since sums would not be exact any more.
std::uint64_t ToNumber(const ReadJson& json) {
  if (!json.is_number_unsigned() || json.get<std::uint64_t>() > kMostSum) Refuse("count", json);
  return json.get<std::uint64_t>();
}

std::uint64_t ToMicroseconds(const ReadJson& seconds) {
  if (!seconds.is_number() || seconds.get<double>() < 0) Refuse("time", seconds);
  return TimeStatistics::Microseconds(seconds.get<double>());
}

std::uint64_t FromHexadecimal(const std::string& digits) {
  const bool all = digits.find_first_not_of("0123456789abcdef") == std::string::npos;
  if (!all || digits.empty() || digits.size() > 16) Refuse("hexadecimal number", digits);
  return std::stoull(digits, nullptr, 16);
}

// Reads what Writer has written. A missing member leaves the value as it is.
struct Reader {
  template <typename Value>
  Value Get(const std::string& name) const {
    try {
      return json.value(name, Value());
    } catch (const ReadJson::type_error&) {
      throw std::invalid_argument(name + " is of another type");
    }
  }
  template <typename Value>
  void Number(const char* name, Value& number) const {
    if (json.contains(name)) number = ToNumber(json[name]);
  }
  template <typename Value>
  void Duration(const char* name, Value& microseconds) const {
    if (json.contains(name)) microseconds = ToMicroseconds(json[name]);
  }
  void Time(const char* name, std::optional<LogTime>& time) const {
    if (!json.contains(name)) return;
    time = LogTimeAt(Get<std::string>(name));
    if (!time) Refuse("time", json[name]);
  }
  void Text(const std::string& name, std::string& text) const {
    text = Get<std::string>(name);
    if (!json.contains(BytesMember(name))) return;
    const auto digits = Get<std::string>(BytesMember(name));
    text.clear();
    for (std::size_t at = 0; at < digits.size(); at += 2) {
      text += static_cast<char>(FromHexadecimal(digits.substr(at, 2)));
    }
  }
  void Detail(const char* name, std::string& text) const { Text(name, text); }
  void Times(TimeStatistics& times) const {
    Duration("total_seconds", times.total);
    Duration("max_seconds", times.max);
  }

  const ReadJson& json;
};

// Writes or reads the members that a sum of shapes has, too.
template <typename Access, typename SomeCounters>
void AccessCounters(Access access, SomeCounters& counters) {
  access.Number("count", counters.count);
  access.Times(counters.times);
  access.Duration("lock_seconds", counters.lock_microseconds);
  access.Number("rows_sent", counters.rows_sent);
  access.Number("rows_examined", counters.rows_examined);
  access.Number("rows_affected", counters.rows_affected);
  access.Time("first_seen", counters.first_seen);
  access.Time("last_seen", counters.last_seen);
}

template <typename Access, typename SomeExample>
void AccessExample(Access access, SomeExample& example) {
  access.Text("example", example.text);
  access.Detail("example_user", example.user);
  access.Detail("example_database", example.database);
  access.Detail("example_host", example.host);
  access.Detail("example_parameters", example.parameters);
  access.Duration("example_seconds", example.microseconds);
  access.Time("example_time", example.time);
}

// All that a shape's sum needs, and its id.
Json ShapeJson(const ShapeKey& key, const Shape& shape) {
  Json json;
  AccessCounters(Writer{json}, shape);
  for (const auto& [bound, number] : shape.times.classes) {
    json["histogram"][Json(Seconds(bound)).dump()] = number;
  }
  if (!shape.errors.empty()) json["errors"] = shape.errors;
  if (!shape.query_ids.empty()) json["query_ids"] = shape.query_ids;
  if (!shape.keys.empty()) {
    json[kKeys] = shape.keys.size();
    for (const std::uint64_t fingerprint : shape.keys) {
      json["key_fingerprints"].push_back(Hexadecimal(fingerprint));
    }
  }
  json["id"] = Hexadecimal(Fingerprint(key.shape));
  Writer{json}.Detail("group", key.group);
  Writer{json}.Text("shape", key.shape);
  return json;
}

void AddShape(const ReadJson& json, ShapeCount& count) {
  const Reader reader{json};
  if (!json.contains("shape")) Refuse("shape", json);
  ShapeKey key;
  reader.Text("group", key.group);
  reader.Text("shape", key.shape);
  Shape shape;
  AccessCounters(reader, shape);
  using Members = std::map<std::string, ReadJson>;
  for (const auto& [bound, number] : reader.Get<Members>("histogram")) {
    // A stranger's bounds may be none of ours.
    shape.times.AddToClass(ToMicroseconds(ReadJson::parse(bound)), ToNumber(number));
  }
  for (const auto& [error, number] : reader.Get<Members>("errors")) {
    shape.errors[error] = ToNumber(number);
    shape.failures = CappedSum(shape.failures, ToNumber(number));
  }
  shape.query_ids = reader.Get<std::set<std::string>>("query_ids");
  for (const auto& digits : reader.Get<std::vector<std::string>>("key_fingerprints")) {
    shape.keys.insert(FromHexadecimal(digits));
  }
  AccessExample(reader, shape.example.emplace());
  count.counted = CappedSum(count.counted, shape.count);
  count.shapes[key] += shape;
}

// Writes a text in slices, since a control character takes six bytes in JSON.
void WriteText(std::string_view text, Output& output) {
  constexpr std::size_t kSlice = 4096;
  const auto within_character = [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
  };
  output.Write("\"");
  while (!text.empty()) {
    std::size_t size = std::min(kSlice, text.size());
    while (size < text.size() && within_character(text[size]) && size < kSlice + 3) ++size;
    const std::string json = JsonText(text.substr(0, size));
    output.Write(std::string_view(json).substr(1, json.size() - 2));
    text.remove_prefix(size);
  }
  output.Write("\"");
}

// Writes the members of `object`, each in a line of its own after `margin` blanks.
void WriteMembers(const Json& object, std::size_t margin, Output& output) {
  const char* before = "\n";
  for (const auto& [name, value] : object.items()) {
    output.Write(fmt::format("{}{:{}}\"{}\": ", before, "", margin, name));
    if (value.is_string()) {
      WriteText(value.get_ref<const std::string&>(), output);
    } else {
      output.Write(JsonText(value, margin));
    }
    before = ",\n";
  }
}

// Writes `head` with one more member, a list of objects. They are made one by one, since texts may
// be long.
template <typename Elements, typename MakeElement>
void WriteList(const Json& head, const char* list, const Elements& elements,
               const MakeElement& make, Output& output) {
  output.Write("{");
  WriteMembers(head, 2, output);
  output.Write(fmt::format(",\n  \"{}\": [", list));
  const char* before = "\n    {";
  for (const auto& element : elements) {
    output.Write(before);
    WriteMembers(make(element), 6, output);
    before = "\n    },\n    {";
  }
  output.Write(elements.empty() ? "]\n}\n" : "\n    }\n  ]\n}\n");
}

}  // namespace

void WriteReport(const ShapeCount& count, const RankOptions& options, const CountingRule& rule,
                 impl_dao::CProductInterface& product, Output& output) {
  const Ranking ranking = Rank(count, options);
  const auto share_of = [&ranking](const Counters& counters) {
    constexpr double kPrecision = 1e4;
    return std::round(ranking.ShareOf(counters) * kPrecision) / kPrecision;
  };
  Json head{{kMark, kVersion}};
  if (rule.exact) head[kExact] = true;
  if (rule.fold_digits) head[kFoldDigits] = true;
  if (rule.keys) head[kKeys] = true;
  if (rule.group_by) head[kGroupBy] = NameOf(*rule.group_by);
  head["statements"] = count.counted;
  head["failed"] = count.failed;
  head["shape_count"] = count.shapes.size();
  Writer{head}.Time("first_time", count.first_time);
  Writer{head}.Time("last_time", count.last_time);
  if (ranking.other_shapes > 0) {
    Json& others = head[kOthers] = {{"share", share_of(ranking.others)}};
    AccessCounters(Writer{others}, ranking.others);
    others["shape_count"] = ranking.other_shapes;
  }
  WriteList(
      head, "shapes", ranking.shown,
      [&](const ShapeEntry* entry) {
        const auto& [key, shape] = *entry;
        Json json = ShapeJson(key, shape);
        json["share"] = share_of(shape);
        std::string canonical = shape.example->text;
        json["canonical"] = CallNormalize(product, canonical) ? Json() : Json(canonical);
        AccessExample(Writer{json}, *shape.example);
        return json;
      },
      output);
}

void WriteComparison(const Comparison& comparison, Output& output) {
  const auto counters = [](const Counters& one) {
    Json json;
    AccessCounters(Writer{json}, one);
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
  for (const std::string_view token : {std::string_view("{"), std::string_view("\"")}) {
    head.remove_prefix(std::min(head.find_first_not_of(kBlanks), head.size()));
    if (!head.starts_with(token)) return false;
    head.remove_prefix(token.size());
  }
  return head.starts_with(kMark);
}

ShapeCount ReadReport(const std::string& name, std::string_view text, const CountingRule& rule) {
  // Names the input and not the library's error class.
  const auto fail = [&name](const std::string& reason) { throw InputError(name + ": " + reason); };
  ShapeCount count;
  CountingRule counted;
  try {
    // Shapes are added one by one, so that their JSON is never in memory all at once.
    constexpr int kShapeDepth = 2;
    const auto take_shape = [&count](int depth, ReadJson::parse_event_t event, ReadJson& json) {
      // Values of a histogram are the deepest of a report; deeper ones would exhaust the stack.
      if (depth > kShapeDepth + 2) throw std::invalid_argument("too deep");
      if (depth != kShapeDepth || event != ReadJson::parse_event_t::object_end) return true;
      AddShape(json, count);
      return false;
    };
    const ReadJson head = ReadJson::parse(text, take_shape);
    const Reader reader{head};
    const bool any = head.is_object() && reader.Get<int>(kMark) == kVersion;
    if (!any) fail("not a report of this version");
    // The objects in it have been taken.
    if (!reader.Get<std::vector<ReadJson>>("shapes").empty()) Refuse("shape", head["shapes"][0]);
    counted.exact = reader.Get<bool>(kExact);
    counted.fold_digits = reader.Get<bool>(kFoldDigits);
    counted.keys = reader.Get<bool>(kKeys);
    for (std::size_t i = 0; i < kDetails; ++i) {
      const auto detail = static_cast<Detail>(i);
      if (reader.Get<std::string>(kGroupBy) == NameOf(detail)) counted.group_by = detail;
    }
    if (head.contains(kOthers))
      fail("the report was made with --top or --min-count and lacks shapes");
    reader.Number("failed", count.failed);
    reader.Time("first_time", count.first_time);
    reader.Time("last_time", count.last_time);
  } catch (const ReadJson::exception&) {
    fail("the report is damaged or ends too early");
  } catch (const std::logic_error& error) {
    fail(std::string("the report is damaged: ") + error.what());
  }
  if (counted != rule)
    fail("the report was made with other --exact, --fold-digits, --keys or --group-by");
  return count;
}

}  // namespace tarn::host

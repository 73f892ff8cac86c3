#include "tarn_host/shape_report.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "plugin/normalize_call.h"
#include "tarn_host/errors.h"
#include "tarn_host/json.h"

namespace tarn::host {
namespace {

using ShapeEntry = std::pair<const std::string, Shape>;

// What is printed one by one, in order, and what is summed up.
struct Ranking {
  std::vector<const ShapeEntry*> shown;
  std::size_t other_shapes = 0;
  Shape others;
  // Of all shapes.
  double total_seconds = 0;
  bool timed = false;
  ShapeOrder order = ShapeOrder::kCount;

  double ShareOf(const Shape& shape, const ShapeCount& count) const {
    if (order == ShapeOrder::kTime && total_seconds > 0) return shape.times.Total() / total_seconds;
    return static_cast<double>(shape.count) / static_cast<double>(count.counted);
  }
};

Ranking Rank(const ShapeCount& count, const ReportOptions& options) {
  Ranking ranking;
  for (const ShapeEntry& entry : count.shapes) {
    ranking.timed = ranking.timed || entry.second.times.Count() > 0;
    ranking.total_seconds += entry.second.times.Total();
    ranking.shown.push_back(&entry);
  }
  ranking.order = options.order.value_or(ranking.timed ? ShapeOrder::kTime : ShapeOrder::kCount);
  const auto key = [&ranking](const ShapeEntry* entry) {
    const Shape& shape = entry->second;
    double measure = 0;
    if (ranking.order == ShapeOrder::kTime) measure = shape.times.Total();
    if (ranking.order == ShapeOrder::kMax) measure = shape.times.Max();
    return std::make_tuple(-measure, ~shape.count, shape.first);
  };
  const auto enough = std::partition(
      ranking.shown.begin(), ranking.shown.end(),
      [&options](const ShapeEntry* entry) { return entry->second.count >= options.min_count; });
  const auto kept = ranking.shown.begin() +
                    static_cast<std::ptrdiff_t>(std::min(
                        options.top, static_cast<std::size_t>(enough - ranking.shown.begin())));
  std::partial_sort(ranking.shown.begin(), kept, enough,
                    [&key](const ShapeEntry* a, const ShapeEntry* b) { return key(a) < key(b); });
  for (auto other = kept; other != ranking.shown.end(); ++other) {
    const Shape& shape = (*other)->second;
    ++ranking.other_shapes;
    ranking.others.count += shape.count;
    ranking.others.times.Add(shape.times);
    ranking.others.rows_sent += shape.rows_sent;
    ranking.others.rows_examined += shape.rows_examined;
  }
  ranking.shown.erase(kept, ranking.shown.end());
  return ranking;
}

template <typename... Arguments>
std::string Formatted(const char* format, Arguments... arguments) {
  char text[256];
  const int length = std::snprintf(text, sizeof text, format, arguments...);
  return {text, static_cast<std::size_t>(length)};
}

std::string Counted(std::uint64_t count, const char* what) {
  return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

// "-" for none.
std::string Duration(const TimeStatistics& times, double seconds) {
  if (times.Count() == 0) return "-";
  constexpr double kMilli = 1e-3;
  constexpr double kManySeconds = 1e4;
  if (seconds < kMilli) return Formatted("%.0f us", seconds * 1e6);
  if (seconds < 1) return Formatted("%.2f ms", seconds * 1e3);
  return Formatted(seconds < kManySeconds ? "%.2f s" : "%.0f s", seconds);
}

// The table's columns up to the id.
class Columns {
 public:
  // `width` is the terminal's, 0 for none.
  Columns(const Ranking& ranking, std::size_t width)
      : timed_(ranking.timed), narrow_(timed_ && width > 0 && width < kWide) {}

  // Whether there is no room for the number of rows, nor for the shape behind the id.
  bool Narrow() const noexcept { return narrow_; }

  std::string Head() const {
    std::string head = Formatted("%4s %9s %8s", "rank", "count", "share");
    if (timed_) head += Formatted(" %9s %9s %9s %9s", "total", "mean", "95 %", "max");
    if (timed_ && !narrow_) head += Formatted(" %9s %10s", "sent", "examined");
    return head + Formatted("  %-8s%s", "id", narrow_ ? "" : "  shape");
  }

  // `rank` may be empty.
  std::string Row(const std::string& rank, const Shape& shape, double share) const {
    constexpr double kPercent = 100;
    const TimeStatistics& times = shape.times;
    std::string row = Formatted("%4s %9llu %6.2f %%", rank.c_str(),
                                static_cast<unsigned long long>(shape.count), kPercent * share);
    if (timed_) {
      for (const double seconds :
           {times.Total(), times.Mean(), times.Percentile95(), times.Max()}) {
        row += Formatted(" %9s", Duration(times, seconds).c_str());
      }
    }
    if (timed_ && !narrow_) {
      row += Formatted(" %9llu %10llu", static_cast<unsigned long long>(shape.rows_sent),
                       static_cast<unsigned long long>(shape.rows_examined));
    }
    return row + "  ";
  }

 private:
  static constexpr std::size_t kWide = 140;

  bool timed_;
  bool narrow_;
};

}  // namespace

std::string ShapeId(std::string_view shape) {
  constexpr std::size_t kBytes = 4;
  constexpr char kHexDigits[] = "0123456789abcdef";
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
  if (EVP_Digest(shape.data(), shape.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1) {
    throw ToolError("cannot hash: the cryptographic library fails");
  }
  std::string id;
  for (std::size_t i = 0; i < kBytes; ++i) {
    id += kHexDigits[digest.at(i) >> 4U];
    id += kHexDigits[digest.at(i) & 0xFU];
  }
  return id;
}

void PrintTable(const ShapeCount& count, const ReportOptions& options, Output& output) {
  const Ranking ranking = Rank(count, options);
  const std::size_t width = output.Width();
  const auto print = [&output, width](const std::string& line) {
    output.Write(Fitted(line, width) + '\n');
  };

  std::string head =
      Counted(count.counted, "statement") + ", " + Counted(count.shapes.size(), "shape");
  if (count.failed > 0) head += ", " + std::to_string(count.failed) + " failed";
  if (count.first_time) {
    head += ", " + FormatLogTime(*count.first_time) + " to " + FormatLogTime(*count.last_time);
  }
  print(head);
  if (count.shapes.empty()) return;

  const Columns columns(ranking, width);
  const char* const indent = "     ";
  print(columns.Head());
  std::size_t rank = 0;
  for (const ShapeEntry* entry : ranking.shown) {
    const auto& [text, shape] = *entry;
    const std::string row =
        columns.Row(std::to_string(++rank), shape, ranking.ShareOf(shape, count)) + ShapeId(text);
    if (columns.Narrow()) {
      print(row);
      print(indent + OneLine(text));
    } else {
      print(row + "  " + OneLine(text));
    }
    if (options.examples) print(indent + OneLine(shape.example));
  }
  if (ranking.other_shapes > 0) {
    print(columns.Row("", ranking.others, ranking.ShareOf(ranking.others, count)) +
          Counted(ranking.other_shapes, ranking.shown.empty() ? "shape" : "more shape"));
  }
}

void PrintJson(const ShapeCount& count, const ReportOptions& options,
               impl_dao::CProductInterface& product, Output& output) {
  using Json = nlohmann::ordered_json;
  const Ranking ranking = Rank(count, options);
  const auto numbers = [&](const Shape& shape) {
    Json json{{"count", shape.count}, {"share", ranking.ShareOf(shape, count)}};
    if (ranking.timed) {
      json["total_seconds"] = shape.times.Total();
      json["mean_seconds"] = shape.times.Mean();
      json["p95_seconds"] = shape.times.Percentile95();
      json["max_seconds"] = shape.times.Max();
      json["rows_sent"] = shape.rows_sent;
      json["rows_examined"] = shape.rows_examined;
    }
    return json;
  };
  const auto text = [](const Json& json, int levels) {
    constexpr int kIndent = 2;
    std::string lines = JsonText(json);
    const std::string indent(static_cast<std::size_t>(levels * kIndent), ' ');
    for (std::size_t at = 0; (at = lines.find('\n', at)) != std::string::npos; ++at) {
      lines.insert(at + 1, indent);
    }
    return lines;
  };

  Json head{{"statements", count.counted},
            {"failed", count.failed},
            {"shape_count", count.shapes.size()}};
  if (count.first_time) {
    head["first_time"] = FormatLogTime(*count.first_time);
    head["last_time"] = FormatLogTime(*count.last_time);
  }
  if (ranking.other_shapes > 0) {
    Json others = numbers(ranking.others);
    others["shape_count"] = ranking.other_shapes;
    head["others"] = std::move(others);
  }
  // One by one, so that they are never in memory together.
  std::string open = text(head, 0);
  open.erase(open.rfind('\n'));
  output.Write(open + ",\n  \"shapes\": [");
  const char* between = "\n    ";
  for (const ShapeEntry* entry : ranking.shown) {
    const auto& [shape_text, shape] = *entry;
    Json json = numbers(shape);
    json["id"] = ShapeId(shape_text);
    json["shape"] = shape_text;
    std::string canonical = shape.example;
    json["canonical"] = CallNormalize(product, canonical) ? Json() : Json(canonical);
    json["example"] = shape.example;
    output.Write(between + text(json, 2));
    between = ",\n    ";
  }
  output.Write(ranking.shown.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

}  // namespace tarn::host

#include "tarn_host/table.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "shapes/fingerprint.h"
#include "sql/errors.h"

namespace tarn::host {
namespace {

constexpr const char* kIndent = "     ";

template <typename... Arguments>
std::string Formatted(const char* format, Arguments... arguments) {
  char text[256];
  const int length = std::snprintf(text, sizeof text, format, arguments...);
  return {text, static_cast<std::size_t>(length)};
}

std::string Counted(std::uint64_t count, const char* what) {
  return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

// `text` with blanks before it, `width` columns in all.
std::string RightAligned(const std::string& text, std::size_t width) {
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

// Three digits, or all digits of a larger whole number: "2.53 s", "158 ms", "86400 s".
std::string Duration(std::uint64_t microseconds) {
  constexpr double kThousand = 1000;
  auto number = static_cast<double>(microseconds);
  if (number < kThousand) return Formatted("%.0f us", number);
  number /= kThousand;
  const char* unit = "ms";
  if (number >= kThousand) {
    number /= kThousand;
    unit = "s";
  }
  constexpr double kTen = 10;
  constexpr double kHundred = 100;
  const int decimals = number < kTen ? 2 : number < kHundred ? 1 : 0;
  return Formatted("%.*f %s", decimals, number, unit);
}

// A column of facts. Its texts are usually at most `width` characters long.
struct Column {
  const char* title;
  std::size_t width;
  std::function<std::string(const Counters&)> text;
};

constexpr std::size_t kTimeColumns = 4;
constexpr std::size_t kTimeWidth = 8;

// The columns that the input has facts for, the most useful ones first.
std::vector<Column> ColumnsOf(const Ranking& ranking) {
  std::vector<Column> columns;
  const auto add_time = [&columns](const char* title, auto time) {
    columns.push_back({title, kTimeWidth, [time](const Counters& counters) {
                         return counters.times.Known() ? Duration(time(counters.times)) : "-";
                       }});
  };
  if (ranking.all.times.Known()) {
    add_time("total", [](const TimeStatistics& times) { return times.total; });
    add_time("mean", [](const TimeStatistics& times) { return times.Mean(); });
    add_time("95 %", [](const TimeStatistics& times) { return times.Percentile95(); });
    add_time("max", [](const TimeStatistics& times) { return times.max; });
  }
  if (ranking.all.failures > 0) {
    columns.push_back(
        {"errors", 7, [](const Counters& counters) { return std::to_string(counters.failures); }});
  }
  constexpr std::pair<const char*, std::size_t> kRowColumns[] = {
      {"sent", 9}, {"examined", 10}, {"affected", 9}};
  for (std::size_t i = 0; i < std::size(kRowColumns); ++i) {
    const auto value = kRowCounters[i].value;
    if (!(ranking.all.*value)) continue;
    columns.push_back(
        {kRowColumns[i].first, kRowColumns[i].second, [value](const Counters& counters) {
           const std::optional<std::uint64_t>& number = counters.*value;
           return number ? std::to_string(*number) : "-";
         }});
  }
  if (ranking.all.lock_microseconds.value_or(0) > 0) {
    columns.push_back({"lock", kTimeWidth, [](const Counters& counters) {
                         const auto& lock = counters.lock_microseconds;
                         return lock ? Duration(*lock) : "-";
                       }});
  }
  return columns;
}

// The columns of a table from the rank to the id.
class Frame {
 public:
  // `width` is the number of the terminal's columns, 0 without a terminal.
  Frame(const Ranking& ranking, bool grouped, std::size_t width)
      : ranking_(ranking), columns_(ColumnsOf(ranking)), grouped_(grouped) {
    if (width == 0) return;
    constexpr std::size_t kFixed = 23 + 2 + 16;
    constexpr std::size_t kShapeWidth = 26;
    const std::size_t times = ranking.all.times.Known() ? kTimeColumns * (kTimeWidth + 1) : 0;
    narrow_ = kFixed + kShapeWidth + times > width;
    std::size_t used = narrow_ ? kFixed : kFixed + kShapeWidth;
    std::size_t kept = 0;
    while (kept < columns_.size() && used + columns_[kept].width < width) {
      used += columns_[kept++].width + 1;
    }
    columns_.resize(kept);
  }

  // Whether the shape is printed in a line of its own, since the terminal is too narrow.
  bool Narrow() const noexcept { return narrow_; }

  std::string Head() const {
    std::string head = Formatted("%4s %9s %8s", "rank", "count", "share");
    for (const Column& column : columns_) head += ' ' + RightAligned(column.title, column.width);
    head += Formatted("  %-16s", "id");
    if (narrow_) return head;
    return head + (grouped_ ? "  group  shape" : "  shape");
  }

  // `rank` is empty for the sum of other shapes.
  std::string Row(const std::string& rank, const Counters& counters) const {
    constexpr double kPercent = 100;
    std::string row = Formatted("%4s %9llu %6.2f %%", rank.c_str(),
                                static_cast<unsigned long long>(counters.count),
                                kPercent * ranking_.ShareOf(counters));
    for (const Column& column : columns_) {
      row += ' ' + RightAligned(column.text(counters), column.width);
    }
    return row + "  ";
  }

 private:
  const Ranking& ranking_;
  std::vector<Column> columns_;
  bool grouped_;
  bool narrow_ = false;
};

std::string Span(const LogTime& first, const LogTime& last) {
  return FormatLogTime(first) + " to " + FormatLogTime(last);
}

// The lines below a shape: its errors and ids, and its slowest statement.
std::vector<std::string> Details(const Shape& shape) {
  std::vector<std::string> lines;
  std::string facts;
  const auto add = [&facts](const std::string& name, const std::string& fact) {
    if (fact.empty()) return;
    facts += (facts.empty() ? "" : ", ") + name + OneLine(fact);
  };
  if (shape.first_seen) add("seen ", Span(*shape.first_seen, *shape.last_seen));
  for (const auto& [error, number] : shape.errors) {
    add("error ", error + " (" + std::to_string(number) + ')');
  }
  for (const std::string& id : shape.query_ids) add("query id ", id);
  if (!facts.empty()) lines.push_back(std::exchange(facts, {}));
  if (!shape.example) return lines;
  const Example& example = *shape.example;
  if (example.microseconds) add("slowest ", Duration(*example.microseconds));
  if (example.time) add("at ", FormatLogTime(*example.time));
  add("user ", example.user);
  add("database ", example.database);
  add("host ", example.host);
  add("parameters ", example.parameters);
  if (!facts.empty()) lines.push_back(facts);
  lines.push_back(OneLine(example.text));
  return lines;
}

// "group  shape", or the shape alone.
std::string Title(const ShapeKey& key) {
  return OneLine(key.group.empty() ? key.shape : key.group + "  " + key.shape);
}

}  // namespace

void PrintTable(const ShapeCount& count, const TableOptions& options, Output& output) {
  const Ranking ranking = Rank(count, options.rank);
  const std::size_t width = output.Width();
  const auto print = [&output, width](const std::string& line) {
    output.Write(Fitted(line, width) + '\n');
  };

  std::string head =
      Counted(count.counted, "statement") + ", " + Counted(count.shapes.size(), "shape");
  if (count.failed > 0) head += ", " + std::to_string(count.failed) + " failed";
  if (count.first_time) head += ", " + Span(*count.first_time, *count.last_time);
  print(head);
  if (count.shapes.empty()) return;

  const bool grouped = std::any_of(count.shapes.begin(), count.shapes.end(),
                                   [](const ShapeEntry& one) { return !one.first.group.empty(); });
  const Frame frame(ranking, grouped, width);
  print(frame.Head());
  std::size_t rank = 0;
  for (const ShapeEntry* entry : ranking.shown) {
    const auto& [key, shape] = *entry;
    std::string row =
        frame.Row(std::to_string(++rank), shape) + Hexadecimal(Fingerprint(key.shape));
    std::string title = Title(key);
    if (!shape.keys.empty()) title.insert(0, '(' + Counted(shape.keys.size(), "key") + ") ");
    if (frame.Narrow()) {
      print(row);
      print(kIndent + title);
    } else {
      print(row.append("  ").append(title));
    }
    if (!options.examples) continue;
    for (const std::string& line : Details(shape)) print(kIndent + line);
  }
  if (ranking.other_shapes > 0) {
    print(frame.Row("", ranking.others) +
          Counted(ranking.other_shapes, ranking.shown.empty() ? "shape" : "more shape"));
  }
}

void PrintTable(const Comparison& comparison, Output& output) {
  const std::size_t width = output.Width();
  const auto print = [&output, width, &comparison](const std::string& change,
                                                   const Counters& before, const Counters& after,
                                                   const std::string& rest) {
    std::string line =
        Formatted("%-6s %9llu %9llu", change.c_str(), static_cast<unsigned long long>(before.count),
                  static_cast<unsigned long long>(after.count));
    const auto add_time = [&line](const Counters& counters, std::uint64_t time) {
      line += ' ' + RightAligned(counters.times.Known() ? Duration(time) : "-", kTimeWidth);
    };
    if (comparison.Timed()) {
      add_time(before, before.times.total);
      add_time(after, after.times.total);
      add_time(before, before.times.Mean());
      add_time(after, after.times.Mean());
    }
    output.Write(Fitted(line + "  " + rest, width) + '\n');
  };
  std::string head = Formatted("%-6s %19s", "", "statements");
  std::string columns = Formatted("%-6s %9s %9s", "change", "before", "after");
  if (comparison.Timed()) {
    head += Formatted(" %17s %17s", "total", "mean");
    for (int i = 0; i < 2; ++i) columns += Formatted(" %8s %8s", "before", "after");
  }
  output.Write(Fitted(head, width) + '\n' + Fitted(columns + "  id                shape", width) +
               '\n');
  print("all", comparison.before, comparison.after, Counted(comparison.shape_count, "shape"));
  for (const ShapeChange& shape : comparison.changes) {
    print(NameOf(shape.change), shape.before, shape.after,
          Hexadecimal(Fingerprint(shape.key->shape)) + "  " + Title(*shape.key));
  }
}

}  // namespace tarn::host

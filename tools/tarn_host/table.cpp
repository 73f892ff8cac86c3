#include "tarn_host/table.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
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

// "1 statement", "2 statements".
std::string Counted(std::uint64_t count, const char* noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

// Three digits, or all digits of a larger whole number: "2.53 s", "158 ms", "86400 s".
std::string Duration(std::uint64_t microseconds) {
  constexpr double kThousand = 1000;
  auto number = static_cast<double>(microseconds);
  if (number < kThousand) return fmt::format("{} us", microseconds);
  number /= kThousand;
  const bool seconds = number >= kThousand;
  if (seconds) number /= kThousand;
  const int decimals = number < 10 ? 2 : number < 100 ? 1 : 0;
  return fmt::format("{:.{}f} {}", number, decimals, seconds ? "s" : "ms");
}

// A column of facts. Its texts are usually at most `width` characters long.
struct Column {
  const char* title;
  std::size_t width;
  // The fact in microseconds, or as a number; nothing if no log records it.
  bool is_time;
  std::optional<std::uint64_t> (*value)(const Counters&);
  // The column is left out if the sum of all shapes is less.
  std::uint64_t least = 0;

  std::string Cell(const Counters& counters) const {
    const auto fact = value(counters);
    const auto text = !fact ? "-" : is_time ? Duration(*fact) : std::to_string(*fact);
    return fmt::format(" {:>{}}", text, width);
  }
};

template <auto Member>
std::optional<std::uint64_t> Number(const Counters& counters) {
  return counters.*Member;
}

template <auto Member>
std::optional<std::uint64_t> Time(const Counters& counters) {
  if (!counters.times.Known()) return std::nullopt;
  return std::invoke(Member, counters.times);
}

constexpr std::size_t kTimeWidth = 8;
constexpr Column kTotal{"total", kTimeWidth, true, Time<&TimeStatistics::total>};
constexpr Column kMean{"mean", kTimeWidth, true, Time<&TimeStatistics::Mean>};

// The most useful columns come first.
constexpr std::array kColumns{
    kTotal,
    kMean,
    Column{"95 %", kTimeWidth, true, Time<&TimeStatistics::Percentile95>},
    Column{"max", kTimeWidth, true, Time<&TimeStatistics::max>},
    Column{"errors", 7, false, Number<&Counters::failures>, 1},
    Column{"sent", 9, false, Number<&Counters::rows_sent>},
    Column{"examined", 10, false, Number<&Counters::rows_examined>},
    Column{"affected", 9, false, Number<&Counters::rows_affected>},
    Column{"lock", kTimeWidth, true, Number<&Counters::lock_microseconds>, 1}};
constexpr std::size_t kTimeColumns = 4;

// The columns of a table from the rank to the id.
class Frame {
 public:
  // `width` is the number of the terminal's columns, 0 without a terminal.
  Frame(const Ranking& ranking, std::size_t width) : ranking_(ranking) {
    constexpr std::size_t kFixed = 23 + 2 + 16;
    constexpr std::size_t kShapeWidth = 26;
    const std::size_t times = ranking.all.times.Known() ? kTimeColumns * (kTimeWidth + 1) : 0;
    narrow_ = width > 0 && kFixed + kShapeWidth + times > width;
    std::size_t used = kFixed + (narrow_ ? 0 : kShapeWidth);
    for (const Column& column : kColumns) {
      if (column.value(ranking.all) < column.least) continue;
      used += column.width + 1;
      if (width > 0 && used > width) break;
      columns_.push_back(column);
    }
  }

  // Whether the shape is printed in a line of its own, since the terminal is too narrow.
  bool Narrow() const noexcept { return narrow_; }

  std::string Head(bool grouped) const {
    std::string head = fmt::format("{:>4} {:>9} {:>8}", "rank", "count", "share");
    for (const Column& column : columns_) {
      head += fmt::format(" {:>{}}", column.title, column.width);
    }
    return head + fmt::format("  {:<16}", "id") +
           (narrow_   ? ""
            : grouped ? "  group  shape"
                      : "  shape");
  }

  // `rank` is empty for the sum of other shapes.
  std::string Row(const std::string& rank, const Counters& counters) const {
    constexpr double kPercent = 100;
    std::string row = fmt::format("{:>4} {:>9} {:6.2f} %", rank, counters.count,
                                  kPercent * ranking_.ShareOf(counters));
    for (const Column& column : columns_) row += column.Cell(counters);
    return row + "  ";
  }

 private:
  const Ranking& ranking_;
  std::vector<Column> columns_;
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
    add("error ", fmt::format("{} ({})", error, number));
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
  const auto print = [&output](const std::string& line) { output.WriteFitted(line); };

  std::string head =
      Counted(count.counted, "statement") + ", " + Counted(count.shapes.size(), "shape");
  if (count.failed > 0) head += fmt::format(", {} failed", count.failed);
  if (count.first_time) head += ", " + Span(*count.first_time, *count.last_time);
  print(head);
  if (count.shapes.empty()) return;

  const Frame frame(ranking, output.Width());
  print(frame.Head(std::any_of(count.shapes.begin(), count.shapes.end(),
                               [](const auto& one) { return !one.first.group.empty(); })));
  std::size_t rank = 0;
  for (const ShapeEntry* entry : ranking.shown) {
    const auto& [key, shape] = *entry;
    const std::string row =
        frame.Row(std::to_string(++rank), shape) + Hexadecimal(Fingerprint(key.shape));
    std::string title = Title(key);
    if (!shape.keys.empty()) {
      title = fmt::format("({}) {}", Counted(shape.keys.size(), "key"), title);
    }
    print(frame.Narrow() ? row : fmt::format("{}  {}", row, title));
    if (frame.Narrow()) print(kIndent + title);
    if (!options.examples) continue;
    for (const std::string& line : Details(shape)) print(kIndent + line);
  }
  if (ranking.other_shapes > 0) {
    print(frame.Row("", ranking.others) +
          Counted(ranking.other_shapes, ranking.shown.empty() ? "shape" : "more shape"));
  }
}

void PrintTable(const Comparison& comparison, Output& output) {
  std::vector<Column> columns;
  if (comparison.Timed()) columns = {kTotal, kMean};
  const auto print = [&output](const std::string& line) { output.WriteFitted(line); };
  const auto print_row = [&](const std::string& change, const Counters& before,
                             const Counters& after, const std::string& rest) {
    std::string row = fmt::format("{:<6} {:>9} {:>9}", change, before.count, after.count);
    for (const Column& column : columns) row += column.Cell(before) + column.Cell(after);
    print(row + "  " + rest);
  };

  std::string head = fmt::format("{:>26}", "statements");
  std::string titles = fmt::format("{:<6} {:>9} {:>9}", "change", "before", "after");
  for (const Column& column : columns) {
    head += fmt::format(" {:>17}", column.title);
    titles += fmt::format(" {:>8} {:>8}", "before", "after");
  }
  print(head);
  print(titles + "  id                shape");
  print_row("all", comparison.before, comparison.after, Counted(comparison.shape_count, "shape"));
  for (const ShapeChange& shape : comparison.changes) {
    print_row(NameOf(shape.change), shape.before, shape.after,
              Hexadecimal(Fingerprint(shape.key->shape)) + "  " + Title(*shape.key));
  }
}

}  // namespace tarn::host

// How statements are counted by shape, how counts add up, and how the tool prints texts.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <mutex>
#include <nlohmann/json.hpp>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "logs/reader.h"
#include "plugin/plugin.h"
#include "shapes/comparison.h"
#include "shapes/counter.h"
#include "shapes/ranking.h"
#include "sql/errors.h"
#include "support/allocations.h"
#include "support/case_file.h"
#include "support/steps.h"
#include "support/surroundings.h"
#include "tarn_host/json.h"
#include "tarn_host/output.h"
#include "tarn_host/report.h"

// The most bytes that one `write` takes, as with a pipe; 0 for no limit.
static std::size_t most_written = 0;
extern "C" ssize_t write(int fd, const void* bytes, std::size_t size) {
  if (most_written != 0) size = std::min(size, most_written);
  return syscall(SYS_write, fd, bytes, size);
}

namespace tarn::test {
namespace {

using namespace tarn::host;
using namespace ::testing;

impl_dao::CProductInterface& Product() {
  static const Plugin plugin(TARN_PLUGIN_PATH);
  return plugin.Product();
}

std::string ReportOf(const ShapeCount& count, const CountingRule& rule = {}) {
  const OwnedFd file = ScratchFile();
  Output output(file.Get(), "scratch");
  WriteReport(count, {}, rule, Product(), output);
  output.Flush();
  return Content(file.Get());
}

ShapeCount CountSlowLog(const std::string& log, const CountOptions& options) {
  const TemporaryFolder folder;
  StatementReader reader({folder.Write("slow.log", log)}, {});
  std::mutex mutex;
  return CountShapes(
      [&](StatementBatch& batch, std::uint64_t& position) {
        const std::lock_guard lock(mutex);
        if (!reader.Read(batch)) return false;
        position = batch.FirstNumber();
        return true;
      },
      Product(), options);
}

// A log of many blocks, with times, rows and statements that the product refuses. A shape occurs
// late in one block and early in another, and its slowest statement is in the middle.
std::string ManyEntries(int entries) {
  std::string log;
  for (int number = 0; number < entries; ++number) {
    log += fmt::format(
        "# Time: 2026-11-24T09:{}:00Z\n"
        "# Query_time: 0.{}  Lock_time: 0.001 Rows_sent: {}  Rows_examined: {}\n"
        "select x{} where a in ({}{});\n",
        10 + number % 50, number * 7919LL % 1'000'000, number % 5, number, number % 7, number,
        number % 3 == 0 ? ",5" : "");
    if (number % 1000 == 500) log += fmt::format("# Query_time: 2\nselect 1.0e999, {};\n", number);
  }
  return log;
}

TEST(Counter, AgreesOnAnyNumberOfThreads) {
  const std::string log = ManyEntries(4'000);
  for (const bool exact : {false, true}) {
    CountOptions options{.exact = exact, .keys = true};
    const CountingRule rule{.exact = exact, .keys = true};
    const ShapeCount alone = CountSlowLog(log, options);
    EXPECT_EQ(alone.counted, exact ? 4'000U : 4'004U);
    EXPECT_EQ(alone.failed, 4);
    EXPECT_THAT(alone.first_failure.value().reason, HasSubstr("beyond the range of a double"));
    for (const unsigned threads : {1U, 2U, 8U, 8U}) {
      options.threads = threads;
      const ShapeCount together = CountSlowLog(log, options);
      EXPECT_EQ(ReportOf(together, rule), ReportOf(alone, rule)) << threads;
      EXPECT_EQ(together.first_failure.value().position, 502);
    }
    if (exact) continue;
    EXPECT_EQ(alone.shapes.size(), 8);
    const Shape& refused = alone.shapes.begin()->second;
    EXPECT_EQ(refused.times.total, 8'000'000);
    EXPECT_TRUE(refused.keys.empty());
    EXPECT_EQ(std::next(alone.shapes.begin())->second.keys.size(), 572);
  }
}

// Draws executions with any facts that a log may hold. Each differs from the one before it in few
// facts, so that for example several are equally slow.
class DrawnCount {
 public:
  explicit DrawnCount(unsigned start) : random_(start) {}

  // Adds the same execution to both.
  void AddTo(ShapeCount& one, ShapeCount& other) {
    constexpr std::int64_t kWall = 1'764'000'000'000'000;
    constexpr std::int64_t kHalfHour = 1'800'000'001;
    using Count = std::optional<std::uint64_t>;
    Execution& now = execution_;
    for (auto* text : {&now.user, &now.database, &now.host, &now.parameters}) {
      Redraw<std::string_view>(*text, {"", "a", "b", "\xFF\x80", "\xC3\xA4\x9B\n"});
    }
    Redraw<std::string_view>(now.query_id, {"-123", "9"});
    Redraw<std::string_view>(now.error, {"", "42P01"});
    Redraw(now.executed, {true, true, true, false});
    for (auto* seconds : {&now.seconds, &now.lock_seconds}) {
      Redraw<std::optional<double>>(*seconds, {{}, 0, 1e-6, 0.25, 1e300, 7.000001});
    }
    for (auto* rows : {&now.rows_sent, &now.rows_examined, &now.rows_affected}) {
      Redraw<Count>(*rows, {{}, 0, 1, 1000, std::numeric_limits<std::uint64_t>::max()});
    }
    Redraw(time_.wall_microseconds, {kWall, kWall + kHalfHour, kWall + 2 * kHalfHour});
    Redraw<std::optional<std::int32_t>>(time_.offset_seconds, {{}, -1800, 0, 1800});
    Redraw<std::optional<LogTime>>(now.time, {{}, time_, time_});
    Redraw<std::string>(key_.group, {"", "a", "\xFF\x80"});
    Redraw<std::string>(key_.shape, {"", "b", "\xFF\x80"});
    Redraw<std::string>(statement_, {"select", "select b", "select c", "select \xFF\x80"});
    const std::uint64_t fingerprint = random_() % 3;
    for (ShapeCount* count : {&one, &other}) {
      count->shapes[key_].Add(statement_, now);
      count->shapes[key_].keys.insert(fingerprint);
      count->counted += now.executed ? 1 : 0;
      count->failed += fingerprint == 0 ? 1 : 0;
      WidenSpan(count->first_time, count->last_time, now.time);
    }
  }

 private:
  template <typename Value>
  void Redraw(Value& value, std::initializer_list<Value> values) {
    if (random_() % 4 == 0) value = values.begin()[random_() % values.size()];
  }

  std::mt19937 random_;
  Execution execution_;
  LogTime time_;
  ShapeKey key_;
  std::string statement_;
};

TEST(Report, AddsUpToTheReportOfAllLogs) {
  const CountingRule rule{.keys = true, .group_by = Detail::kHost};
  for (unsigned round = 0; round < 50; ++round) {
    DrawnCount drawn(round);
    std::array<ShapeCount, 4> parts;
    ShapeCount whole;
    for (std::size_t number = 0; number < std::size_t{2} * round; ++number) {
      drawn.AddTo(parts.at(number * number % parts.size()), whole);
    }
    for (const bool backwards : {false, true}) {
      if (backwards) std::reverse(parts.begin(), parts.end());
      ShapeCount sum;
      for (const ShapeCount& part : parts) sum += ReadReport("", ReportOf(part, rule), rule);
      EXPECT_EQ(ReportOf(sum, rule), ReportOf(whole, rule)) << round;
    }
  }
}

TEST(Shape, AddsTheFactsOfTheLog) {
  const LogTime time{.wall_microseconds = 5, .offset_seconds = 0};
  Shape shape;
  shape.Add("slow", {.seconds = 2, .lock_seconds = 0.5, .rows_sent = 1, .rows_affected = 3});
  shape.Add("a longer statement", {.seconds = 2});
  shape.Add("parsed", {.seconds = 3, .time = time, .executed = false});
  shape.Add("failed", {.lock_seconds = 1, .rows_sent = 4, .rows_examined = 5, .error = "1064"});
  EXPECT_EQ(std::tuple(shape.count, shape.times.count, shape.times.total, shape.times.max,
                       shape.lock_microseconds, shape.rows_sent, shape.rows_examined,
                       shape.rows_affected, shape.failures, shape.errors.at("1064")),
            std::tuple(3, 2, 7'000'000, 2'000'000, 1'500'000, 5, 5, 3, 1, 1));
  EXPECT_EQ(std::tuple(SortKey(shape.first_seen), SortKey(shape.last_seen), shape.example->text),
            std::tuple(SortKey(time), SortKey(time), "slow"));
  // Of several failures the first is kept.
  ShapeCount counts[2];
  counts[0].first_failure = {7, ""};
  counts[1].first_failure = {5, ""};
  EXPECT_EQ((ShapeCount(counts[0]) += counts[1]).first_failure->position, 5);
  EXPECT_EQ((counts[1] += counts[0]).first_failure->position, 5);
}

// The changes of shapes in order, in reports with times and in reports without.
TEST(Comparison, NamesTheChangesOfShapes) {
  const std::tuple<const char*, std::vector<double>, std::vector<double>> kSeconds[] = {
      {"a", {}, {1}},         {"b", {1}, {}},         {"c", {1, 1}, {1.09, 1.09}},
      {"d", {1}, {1.1, 1.1}}, {"e", {1.1, 1.1}, {1}}, {"f", {1}, {0.95}}};
  for (const bool timed : {true, false}) {
    ShapeCount before, after;
    const auto add = [timed](ShapeCount& count, const char* shape, const std::vector<double>& all) {
      for (const double one : all) {
        count.shapes[{"", shape}].Add("s", {.seconds = timed ? std::optional(one) : std::nullopt});
      }
    };
    for (const auto& [shape, first, second] : kSeconds) {
      add(before, shape, first);
      add(after, shape, second);
    }
    for (ShapeCount* const count : {&before, &after}) {
      if (timed) count->shapes[{"", "parsed"}].Add("s", {.seconds = 1, .executed = false});
    }
    std::string changes;
    for (const ShapeChange& one : Compare(before, after, 7).changes) {
      changes += one.key->shape + ' ' + NameOf(one.change) + ' ';
    }
    EXPECT_EQ(changes, timed ? "d slower a new c same parsed same f same b gone e faster "
                             : "a new d more c same f same b gone e fewer ");
    const Comparison first = Compare(before, after, 5);
    EXPECT_EQ(std::tuple(first.changes.size(), first.shape_count), std::tuple(5, timed ? 7 : 6));
  }
}

TEST(Report, ThatIsDamagedIsRefusedWhole) {
  ShapeCount count, other;
  DrawnCount drawn(7);
  for (int i = 0; i < 20; ++i) drawn.AddTo(count, other);
  const std::string report = ReportOf(count);
  EXPECT_TRUE(BeginsReport(report));
  const auto reason_of = [](const std::string& text) -> std::string {
    try {
      ReadReport("a.json", text, {});
    } catch (const InputError& error) {
      return error.what();
    }
    return "none";
  };
  const std::string incomplete = "a.json: the report is damaged or ends too early";
  // All sizes but the whole report, whose last byte is a newline.
  for (std::size_t size = 0; size + 1 < report.size(); size += 1 + size / 50) {
    EXPECT_EQ(reason_of(report.substr(0, size)), incomplete) << size;
  }
  for (const char* text : {"{\"tarn_host_report\": 2}", "[]", "{}"}) {
    EXPECT_EQ(reason_of(text), "a.json: not a report of this version") << text;
  }
  for (const CaseRow& row : ReadCases("damaged_reports.txt")) {
    ASSERT_GT(row.texts.size(), 1) << row.lines;
    std::istringstream members(row.label);
    for (std::string member; members >> member;) {
      for (auto value = row.texts.begin(); value + 1 < row.texts.end(); ++value) {
        std::string text = fmt::format("\"{}\": {}", member, *value);
        if (row.section == "Shape") text = R"("shapes": [{"shape": "", )" + text + "}]";
        EXPECT_THAT(reason_of(R"({"tarn_host_report": 1, )" + text + "}"),
                    AllOf(StartsWith("a.json: the report is damaged"), HasSubstr(row.texts.back())))
            << text;
      }
    }
  }
  std::string deep = R"({"tarn_host_report": 1, "shapes": [{"histogram": )";
  for (int depth = 0; depth < 1'000'000; ++depth) deep += R"({"1":)";
  deep += '1' + std::string(1'000'000, '}') + "}]}";
  EXPECT_THAT(reason_of(deep), HasSubstr("too deep"));
}

// A stranger may have written the names of members.
TEST(Report, TakesLinearStepsAndLittleMemory) {
  constexpr std::size_t kMostSteps = 200;
  constexpr std::size_t kMembers = 8'000;
  ShapeCount count;
  Shape& shape = count.shapes[{"", "s"}];
  shape.example.emplace();
  std::string text = R"({"tarn_host_report": 1)";
  for (std::size_t number = 0; number < kMembers; ++number) {
    shape.errors[std::to_string(number)] = 1;
    text += ", \"" + std::to_string(number) + "\": 1";
  }
  const std::string members = text.substr(text.find(',') + 1) + '}';
  text += R"(, "shapes": [{"shape": "s", "errors": {)" + members + R"(, "histogram": {)" + members +
          "}]}";
  steps = 0;
  const std::string report = ReportOf(count);
  EXPECT_LT(steps, kMostSteps * report.size());
  for (const std::string& one : {report, text}) {
    steps = 0;
    // Whatever the bounds of a stranger are, there are only our own classes.
    EXPECT_LT(ReadReport("", one, {}).shapes.at({"", "s"}).times.classes.size(), 1000);
    EXPECT_LT(steps, kMostSteps * one.size());
  }

  // JSON has six bytes for each.
  constexpr std::size_t kSize = 1'000'000;
  count.shapes.clear();
  const std::string statement(kSize, '\1');
  count.shapes[{"", statement}].Add(statement, {});
  const OwnedFd file = ScratchFile();
  Output output(file.Get(), "scratch");
  const PeakMemory memory;
  WriteReport(count, {}, {}, Product(), output);
  EXPECT_LT(memory.Bytes(), 8 * kSize);
  output.Flush();
  const std::string written = Content(file.Get());
  const PeakMemory reading;
  EXPECT_EQ(ReadReport("", written, {}).shapes.size(), 1);
  EXPECT_LT(reading.Bytes(), 2 * written.size());
}

// Each shape is the first of one order.
TEST(Ranking, ShowsTheFirstShapesAndSumsUpTheOthers) {
  ShapeCount count;
  const auto add = [&count](const char* shape, const Execution& execution) {
    count.shapes[{"", shape}].Add("s", execution);
  };
  add("b", {.seconds = 1, .rows_sent = 9});
  add("b", {.seconds = 1});
  add("a", {.seconds = 1});
  add("c", {.seconds = 3, .rows_examined = 10});
  add("a", {.seconds = 1});
  add("A", {.seconds = 4, .executed = false});
  const std::tuple<RankOptions, std::string, int, double> kCases[] = {
      {{}, "Acab", 0, 4.0 / 11},
      {{.order = ShapeOrder::kCount, .top = 2}, "ab", 1, 2.0 / 5},
      {{.order = ShapeOrder::kMax, .top = 3}, "cab", 0, 1.0 / 5},
      {{.order = ShapeOrder::kRows, .top = 9}, "cbaA", 0, 1.0 / 5},
      {{.top = 2, .min_count = 2}, "ab", 1, 2.0 / 11},
      {{.top = 3, .min_count = 1}, "cab", 0, 3.0 / 11},
      {{.top = 0, .min_count = 6}, "", 5, 0}};
  for (const auto& [options, expected, others, share] : kCases) {
    const Ranking ranking = Rank(count, options);
    std::string shown;
    for (const ShapeEntry* entry : ranking.shown) shown += entry->first.shape;
    EXPECT_EQ(std::tuple(shown, ranking.others.count, ranking.other_shapes, ranking.all.count),
              std::tuple(expected, others, 4 - shown.size(), 5));
    EXPECT_DOUBLE_EQ(shown.empty() ? 0 : ranking.ShareOf(ranking.shown[0]->second), share);
  }
  // A microsecond is a time, too.
  Ranking ranking;
  ranking.order = ShapeOrder::kTime;
  EXPECT_EQ(ranking.ShareOf({}), 0);
  ranking.all.times.Add(1);
  EXPECT_EQ(ranking.ShareOf(ranking.all), 1);
}

TEST(TimeStatistics, AreExactButForThePercentile) {
  std::mt19937 random(7);
  std::lognormal_distribution<double> durations(8, 3);
  TimeStatistics sum;
  EXPECT_EQ(sum.Known() + sum.Mean() + sum.Percentile95(), 0);
  std::vector<std::uint64_t> all;
  for (std::uint64_t i = 1; i <= 1000; ++i) {
    const bool few = i <= 20;
    all.push_back(few ? i - 1 : static_cast<std::uint64_t>(durations(random)));
    sum.Add(all.back());
    std::sort(all.begin(), all.end());
    const std::uint64_t total = std::accumulate(all.begin(), all.end(), std::uint64_t{0});
    EXPECT_EQ(std::tuple(sum.Known(), sum.max, sum.count, sum.total, sum.Mean()),
              std::tuple(true, all.back(), i, total, total / i));
    // Of 20 times it is the 19th, of 19 the last.
    const std::uint64_t exact = all[i - i / 20 - 1];
    EXPECT_GE(sum.Percentile95(), exact);
    EXPECT_LE(static_cast<double>(sum.Percentile95()),
              static_cast<double>(exact) * (few ? 1 : TimeStatistics::kClassRatio));
  }
  sum.Add(TimeStatistics::Microseconds(1e300));
  EXPECT_EQ(std::tuple(sum.total, sum.classes.rbegin()->first), std::tuple(kMostSum, kMostSum));
  EXPECT_EQ(TimeStatistics::Microseconds(0.4e-6) + TimeStatistics::Microseconds(0.6e-6), 1);
}

TEST(Output, WritesTheRestAfterAPartialWrite) {
  const OwnedFd file = ScratchFile();
  const std::string text = std::string(100'000, 'x') + "end";
  most_written = 7;
  Output output(file.Get(), "scratch");
  output.Write(text);
  output.Flush();
  most_written = 0;
  EXPECT_EQ(Content(file.Get()), text);
}

TEST(Output, FitsLinesByCharacters) {
  EXPECT_EQ(Fitted("abcdef", 6) + Fitted("abcdefg", 6), "abcdefabc...");
  EXPECT_EQ(Fitted("\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", 4), "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4");
  EXPECT_EQ(Fitted("\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", 4), "\xC3\xA4...");
  EXPECT_EQ(Fitted("abc", 2) + Fitted("abc", 0), "..abc");
}

// Some of the characters are incomplete, overlong or surrogates.
TEST(Output, ShowsControlCharactersOfEveryKind) {
  const std::pair<const char*, const char*> kTexts[] = {
      {"a !~\n\t\r\x1B\x1F\x7F", "a !~\\n\\t\\r\\x1B\\x1F\\x7F"},
      {"\xC2\x80\xC2\x9F\xC2\xA0\xC3\x80\xC3\x9B", "\\xC2\\x80\\xC2\\x9F\xC2\xA0\xC3\x80\xC3\x9B"},
      {"\xE2\x82\x9B\xF0\x9F\x98\x80 \x9B \xC0\x9B",
       "\xE2\x82\x9B\xF0\x9F\x98\x80 \\x9B \xC0\\x9B"},
      {"\xE2\x82\x1B \xE0\x82\x9B \xED\xA0\x80", "\xE2\\x82\\x1B \xE0\\x82\\x9B \xED\xA0\\x80"},
      {"\xF4\x90\x80\x80 \xF8\x88\x80\x80\x9B", "\xF4\\x90\\x80\\x80 \xF8\\x88\\x80\\x80\\x9B"},
      {"\xE2\x82 \xF0\x9F\x98", "\xE2\\x82 \xF0\\x9F\\x98"},
      {"\xC2 \xF4\x8F\xBF\xBF", "\xC2 \xF4\x8F\xBF\xBF"}};
  for (const auto& [text, shown] : kTexts) EXPECT_EQ(OneLine(text), shown);
  EXPECT_EQ(Printable("a\n\t\r\x1B") + OneLine("\xE2\x82"), "a\n\t\\r\\x1B\xE2\\x82");
  EXPECT_EQ(JsonText("\x1B\x7F\xC2\x80\xC2\x9F\xC2\xA0\xC3\x80\x9B\xE2\x82\x9B"),
            "\"\\u001b\\u007f\\u0080\\u009f\xC2\xA0\xC3\x80\xEF\xBF\xBD\xE2\x82\x9B\"");
}

}  // namespace
}  // namespace tarn::test

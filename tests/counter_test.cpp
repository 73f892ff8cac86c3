// How statements are counted by shape, and how counts add up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "logs/reader.h"
#include "plugin/plugin.h"
#include "shapes/comparison.h"
#include "shapes/counter.h"
#include "shapes/ranking.h"
#include "sql/errors.h"
#include "support/allocations.h"
#include "support/surroundings.h"
#include "tarn_host/report.h"

namespace {

// The steps of writing and reading reports, by this thread.
thread_local std::uint64_t steps = 0;

}  // namespace

// The compiler calls it at the beginning of each basic block.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" void __sanitizer_cov_trace_pc() { ++steps; }

namespace tarn::test {
namespace {

using namespace tarn::host;
using ::testing::HasSubstr;

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
    const std::string digits = std::to_string(number);
    log += "# Time: 2026-11-24T09:" + std::to_string(10 + number % 50) + ":00Z\n# Query_time: 0." +
           std::to_string(number * 7919LL % 1'000'000) +
           "  Lock_time: 0.001 Rows_sent: " + std::to_string(number % 5) +
           "  Rows_examined: " + digits + "\nselect x" + std::to_string(number % 7) +
           " where a in (" + digits + (number % 3 == 0 ? ",5);\n" : ");\n");
    if (number % 1000 == 500) log += "# Query_time: 2\nselect 1.0e999, " + digits + ";\n";
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
    ASSERT_TRUE(alone.first_failure);
    EXPECT_EQ(alone.first_failure->position, 502);
    EXPECT_THAT(alone.first_failure->reason, HasSubstr("beyond the range of a double"));
    for (const unsigned threads : {2U, 8U, 8U}) {
      options.threads = threads;
      const ShapeCount together = CountSlowLog(log, options);
      EXPECT_EQ(ReportOf(together, rule), ReportOf(alone, rule)) << threads;
      EXPECT_EQ(together.first_failure->position, 502);
    }
    if (exact) continue;
    EXPECT_EQ(alone.shapes.size(), 8);
    const Shape& refused = alone.shapes.begin()->second;
    EXPECT_EQ(refused.count, 4);
    EXPECT_EQ(refused.times.total, 8'000'000);
    EXPECT_TRUE(refused.keys.empty());
    EXPECT_EQ(std::next(alone.shapes.begin())->second.keys.size(), 572);
  }
}

// The times and texts of an entry do not depend on the entries before it.
TEST(Report, OfASlowLogAddsUpWhereverTheLogIsSplit) {
  std::vector<std::string> entries;
  const std::string rest = "# Query_time: 1  Lock_time: 0\nSET timestamp=1795511";
  for (const char* time : {"", "", "# Time: 261124 10:05:01\n", "", "# Time: 261124 10:05:02\n",
                           "# Time: 2026-11-24T10:05:03+01:00\n", ""}) {
    entries.push_back(time + rest + std::to_string(100 + entries.size()) + ";\nselect 1;\n");
  }
  std::string log;
  for (const std::string& entry : entries) log += entry;
  const std::string whole = ReportOf(CountSlowLog(log, {}));
  EXPECT_THAT(whole, HasSubstr("\"first_time\": \"2026-11-24T09:05:00Z\""));
  for (std::size_t at = 0; (at = log.find(";\n#", at + 1)) != std::string::npos;) {
    ShapeCount sum;
    for (const std::string& part : {log.substr(0, at + 2), log.substr(at + 2)}) {
      sum += ReadReport("", ReportOf(CountSlowLog(part, {})), {});
    }
    EXPECT_EQ(ReportOf(sum), whole) << at;
  }
}

// Draws executions with any details that a log may hold, from few values, so that many are equal.
class DrawnCount {
 public:
  explicit DrawnCount(unsigned start) : random_(start) {}

  // Adds the same execution to both.
  void AddTo(ShapeCount& one, ShapeCount& other) {
    const std::array<std::string, 5> texts = {"", "a", "b", "\xFF\x80", "\xC3\xA4\x9B\n"};
    const std::array<double, 5> numbers = {0, 1e-6, 0.25, 1e300, 7.000001};
    const std::array<std::uint64_t, 4> counts = {0, 1, 1000,
                                                 std::numeric_limits<std::uint64_t>::max()};
    const auto text = [&] { return std::string_view(texts.at(random_() % texts.size())); };
    Execution execution{.user = text(),
                        .database = text(),
                        .host = text(),
                        .parameters = text(),
                        .query_id = Drawn() ? "-123" : "9",
                        .error = Drawn() ? "" : "42P01",
                        .executed = random_() % 4 != 0};
    if (Drawn()) execution.seconds = numbers.at(random_() % numbers.size());
    if (Drawn()) execution.lock_seconds = numbers.at(random_() % numbers.size());
    if (Drawn()) execution.rows_sent = counts.at(random_() % counts.size());
    if (Drawn()) execution.rows_examined = counts.at(random_() % counts.size());
    if (Drawn()) execution.rows_affected = counts.at(random_() % counts.size());
    if (Drawn()) {
      LogTime& time = execution.time.emplace();
      time.wall_microseconds =
          1'764'000'000'000'000 + static_cast<std::int64_t>(random_() % 3) * 1'800'000'001;
      if (Drawn()) time.offset_seconds = static_cast<int>(random_() % 3 - 1) * 1800;
    }
    const ShapeKey key{std::string(text()), std::string(text())};
    const std::string statement = "select " + std::string(text());
    const std::uint64_t fingerprint = random_() % 3;
    for (ShapeCount* count : {&one, &other}) {
      count->shapes[key].Add(statement, execution);
      count->shapes[key].keys.insert(fingerprint);
      count->counted += execution.executed ? 1 : 0;
      count->failed += fingerprint == 0 ? 1 : 0;
      WidenSpan(count->first_time, count->last_time, execution.time);
    }
  }

 private:
  bool Drawn() { return random_() % 2 == 0; }

  std::mt19937 random_;
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
    const std::string expected = ReportOf(whole, rule);
    ShapeCount read;
    ShapeCount read_backwards;
    std::vector<std::string> texts;
    for (const ShapeCount& part : parts) texts.push_back(ReportOf(part, rule));
    for (const std::string& text : texts) read += ReadReport("", text, rule);
    std::reverse(texts.begin(), texts.end());
    for (const std::string& text : texts) read_backwards += ReadReport("", text, rule);
    EXPECT_EQ(ReportOf(read, rule), expected) << round;
    EXPECT_EQ(ReportOf(read_backwards, rule), expected) << round;
  }
}

TEST(Shape, AddsTheDetailsOfTheLog) {
  Shape shape;
  shape.Add("slow", {.seconds = 2, .lock_seconds = 0.5, .rows_sent = 1, .rows_affected = 3});
  shape.Add("parsed", {.seconds = 0.25, .executed = false});
  shape.Add("failed", {.lock_seconds = 1, .rows_sent = 4, .rows_examined = 5, .error = "1064"});
  EXPECT_EQ(shape.count, 2);
  EXPECT_EQ(shape.times.count, 1);
  EXPECT_EQ(shape.times.total, 2'250'000);
  EXPECT_EQ(shape.times.max, 2'000'000);
  EXPECT_EQ(shape.lock_microseconds, 1'500'000);
  EXPECT_EQ(shape.rows_sent, 5);
  EXPECT_EQ(shape.rows_examined, 5);
  EXPECT_EQ(shape.rows_affected, 3);
  EXPECT_EQ(shape.failures, 1);
  EXPECT_EQ(shape.errors.at("1064"), 1);
  EXPECT_FALSE(shape.first_seen);
  EXPECT_EQ(shape.example->text, "slow");
}

// The example does not depend on the order either if all statements took equally long.
TEST(Shape, HasTheSameExampleInEitherOrder) {
  const Execution plain{.seconds = 1, .user = "u"};
  std::vector<Execution> others(6, plain);
  others[0].user = "t";
  others[1].database = "d";
  others[2].host = "h";
  others[3].parameters = "p";
  others[4].time = LogTime{};
  others[5].seconds = 2;
  for (const Execution& other : others) {
    ShapeCount counts[2];
    for (ShapeCount& count : counts) {
      const bool first = &count == counts;
      count.shapes[{}].Add("s", first ? plain : other);
      count.shapes[{}].Add("s", first ? other : plain);
    }
    EXPECT_EQ(ReportOf(counts[0]), ReportOf(counts[1]));
  }
}

TEST(Comparison, NamesTheChangeOfAShape) {
  const struct {
    // The seconds of each statement, in a report with times.
    std::vector<double> before;
    std::vector<double> after;
    Change timed;
    // The change of the same statements in a report without times.
    Change untimed;
  } kCases[] = {{{}, {1}, Change::kNew, Change::kNew},
                {{1}, {}, Change::kGone, Change::kGone},
                {{1, 1}, {1.09, 1.09}, Change::kSame, Change::kSame},
                {{1}, {1.1, 1.1}, Change::kSlower, Change::kMore},
                {{1.1, 1.1}, {1}, Change::kFaster, Change::kFewer},
                {{1}, {0.95}, Change::kSame, Change::kSame}};
  for (const auto& one : kCases) {
    for (const bool timed : {true, false}) {
      const auto count = [timed](const std::vector<double>& seconds) {
        ShapeCount counted;
        for (const double duration : seconds) {
          Execution execution;
          if (timed) execution.seconds = duration;
          counted.shapes[{}].Add("s", execution);
        }
        return counted;
      };
      const ShapeCount before = count(one.before);
      const ShapeCount after = count(one.after);
      const Comparison comparison = Compare(before, after, 9);
      ASSERT_EQ(comparison.changes.size(), 1);
      EXPECT_STREQ(NameOf(comparison.changes[0].change), NameOf(timed ? one.timed : one.untimed));
    }
  }
}

TEST(Report, ThatIsDamagedIsRefusedWhole) {
  ShapeCount count;
  ShapeCount other;
  DrawnCount drawn(7);
  for (int i = 0; i < 20; ++i) drawn.AddTo(count, other);
  const std::string report = ReportOf(count);
  EXPECT_TRUE(BeginsReport(report));
  // All sizes but the whole report, whose last byte is a newline.
  for (std::size_t size = 0; size + 1 < report.size(); size += 1 + size / 50) {
    EXPECT_THROW(ReadReport("", report.substr(0, size), {}), InputError) << size;
  }
  // Each member in turn gets an invalid value.
  for (std::size_t at = 0; (at = report.find("\": ", at + 1)) != std::string::npos;) {
    std::string damaged = report;
    const std::size_t end = damaged.find_first_of(",\n", at);
    if (damaged[end - 1] == '{' || damaged[end - 1] == '[') continue;
    damaged.replace(at + 3, end - at - 3, "-[]");
    EXPECT_THROW(ReadReport("", damaged, {}), InputError) << damaged.substr(at, 40);
  }
  const auto reason_of = [](const std::string& text) -> std::string {
    try {
      ReadReport("a.json", text, {});
    } catch (const InputError& error) {
      return error.what();
    }
    return "none";
  };
  for (const char* text : {"{\"tarn_host_report\": 2}", "[]", "{}"}) {
    EXPECT_EQ(reason_of(text), "a.json: not a report of this version") << text;
  }
  const std::pair<const char*, const char*> kCases[] = {
      {R"("shapes": [1])", "not a shape: 1"},
      {R"("shapes": {"a": 1})", "shapes is of another type"},
      {R"("shapes": [{"count": 1}])", R"(not a shape: {"count":1})"},
      {R"("shapes": [{"shape": 1}])", "shape is of another type"},
      {R"("shapes": [{"shape": "", "count": -1}])", "not a count: -1"},
      {R"("shapes": [{"shape": "", "count": 2251799813685248}])", "not a count: 2251799813685248"},
      {R"("shapes": [{"shape": "", "total_seconds": -1}])", "not a time: -1"},
      {R"("shapes": [{"shape": "", "max_seconds": "1"}])", "not a time: \"1\""},
      {R"("shapes": [{"shape": "", "first_seen": "x"}])", "not a time: \"x\""},
      {R"("shapes": [{"shape": "", "key_fingerprints": [""]}])", "not a hexadecimal number: \"\""},
      {R"("shapes": [{"shape": "", "key_fingerprints": ["12345678901234567"]}])",
       "not a hexadecimal number: \"12345678901234567\""},
      {R"("shapes": [{"shape": "", "example_bytes": "0g"}])", "not a hexadecimal number: \"0g\""},
      {R"("shapes": [{"shape": "", "histogram": []}])", "histogram is of another type"},
      {R"("shapes": [{"shape": "", "histogram": {"-1": 1}}])", "not a time: -1"},
      {R"("shapes": [{"shape": "", "errors": {"1": []}}])", "not a count: []"},
      {R"("shapes": [{"shape": "", "query_ids": [1]}])", "query_ids is of another type"},
      {R"("exact": 1)", "exact is of another type"}};
  for (const auto& [member, reason] : kCases) {
    EXPECT_EQ(reason_of(R"({"tarn_host_report": 1, )" + std::string(member) + "}"),
              std::string("a.json: the report is damaged: ") + reason);
  }
  for (const char* text : {R"("total_seconds": 1e400)", R"("total_seconds": nan)",
                           R"("histogram": {"inf": 1})", R"("histogram": {"nan": 1})"}) {
    EXPECT_EQ(reason_of(R"({"tarn_host_report": 1, "shapes": [{"shape": "", )" + std::string(text) +
                        "}]}"),
              "a.json: the report is damaged or ends too early");
  }
  std::string deep = R"({"tarn_host_report": 1, "shapes": [{"histogram": )";
  for (int depth = 0; depth < 1'000'000; ++depth) deep += R"({"1":)";
  deep += '1' + std::string(1'000'000, '}') + "}]}";
  EXPECT_THROW(ReadReport("", deep, {}), InputError);
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
  text += R"(, "shapes": [{"shape": "s", "errors": {"x": 1)" + text.substr(text.find(',')) + "}}]}";
  steps = 0;
  const std::string report = ReportOf(count);
  EXPECT_LT(steps, kMostSteps * report.size());
  for (const std::string& one : {report, text}) {
    steps = 0;
    EXPECT_EQ(ReadReport("", one, {}).shapes.size(), 1);
    EXPECT_LT(steps, kMostSteps * one.size());
  }

  constexpr std::size_t kSize = 1'000'000;
  count.shapes.clear();
  const std::string statement(kSize, 'x');
  count.shapes[{"", statement}].Add(statement, {});
  const PeakMemory memory;
  const std::string all = ReportOf(count);
  EXPECT_LT(memory.Bytes(), 12 * kSize);
  EXPECT_EQ(ReadReport("", all, {}).shapes.size(), 1);
  EXPECT_LT(memory.Bytes(), 16 * kSize);
}

// Shapes by their measures. Each is the first of one order.
TEST(Ranking, ShowsTheFirstShapesAndSumsUpTheOthers) {
  const auto counted = [](bool timed) {
    const std::array<std::pair<const char*, Execution>, 6> executions = {
        {{"b", {.seconds = 1, .rows_sent = 9}},
         {"b", {.seconds = 1}},
         {"a", {.seconds = 1}},
         {"a", {.seconds = 1}},
         {"c", {.seconds = 3, .rows_examined = 10}},
         {"d", {.seconds = 4, .executed = false}}}};
    ShapeCount count;
    for (const auto& [shape, execution] : executions) {
      Execution one = execution;
      if (!timed) one.seconds.reset();
      count.shapes[{"", shape}].Add("s", one);
    }
    return count;
  };
  const struct {
    RankOptions options;
    bool timed;
    std::string shown;
    std::uint64_t others;
    double share;
  } kCases[] = {{{}, true, "dcab", 0, 4.0 / 11},
                {{}, false, "abcd", 0, 2.0 / 5},
                {{.order = ShapeOrder::kTime}, false, "abcd", 0, 2.0 / 5},
                {{.order = ShapeOrder::kCount, .top = 2}, true, "ab", 1, 2.0 / 5},
                {{.order = ShapeOrder::kMax, .top = 3}, true, "cab", 0, 1.0 / 5},
                {{.order = ShapeOrder::kRows, .top = 9}, true, "cbad", 0, 1.0 / 5},
                {{.top = 2, .min_count = 2}, true, "ab", 1, 2.0 / 11},
                {{.top = 3, .min_count = 1}, true, "cab", 0, 3.0 / 11},
                {{.top = 0, .min_count = 6}, true, "", 5, 0}};
  for (const auto& one : kCases) {
    const ShapeCount count = counted(one.timed);
    const Ranking ranking = Rank(count, one.options);
    std::string shown;
    for (const ShapeEntry* entry : ranking.shown) shown += entry->first.shape;
    EXPECT_EQ(shown, one.shown);
    EXPECT_EQ(ranking.others.count, one.others) << shown;
    EXPECT_EQ(ranking.other_shapes, 4 - shown.size()) << shown;
    EXPECT_EQ(ranking.all.count, 5) << shown;
    if (shown.empty()) continue;
    EXPECT_DOUBLE_EQ(ranking.ShareOf(ranking.shown[0]->second), one.share) << shown;
  }
  EXPECT_EQ(Ranking().ShareOf({}), 0);
}

TEST(TimeStatistics, NearThePercentileAndExactOtherwise) {
  std::mt19937 random(7);
  std::lognormal_distribution<double> durations(8, 3);
  TimeStatistics halves[2];
  std::vector<std::uint64_t> all;
  std::uint64_t total = 0;
  for (std::size_t i = 0; i < 5000; ++i) {
    all.push_back(static_cast<std::uint64_t>(durations(random)));
    halves[i % 2].Add(all.back());
    total += all.back();
  }
  halves[0] += halves[1];
  std::sort(all.begin(), all.end());
  const std::uint64_t exact = all[all.size() * 95 / 100 - 1];
  EXPECT_GE(halves[0].Percentile95(), exact);
  EXPECT_LE(static_cast<double>(halves[0].Percentile95()),
            static_cast<double>(exact) * TimeStatistics::kClassRatio);
  EXPECT_EQ(halves[0].max, all.back());
  EXPECT_EQ(halves[0].count, all.size());
  EXPECT_EQ(halves[0].total, total);
  EXPECT_EQ(halves[0].Mean(), total / 5000);
  // The exact percentile of short times: of 20 it is the 19th, of 19 the last.
  TimeStatistics few;
  for (std::uint64_t time = 1; time <= 19; ++time) few.Add(time);
  EXPECT_EQ(few.Percentile95(), 19);
  few.Add(20);
  EXPECT_EQ(few.Percentile95(), 19);
  few = {};
  EXPECT_EQ(few.Mean() + few.Percentile95(), 0);
  few.Add(TimeStatistics::Microseconds(1e300));
  few.Add(TimeStatistics::Microseconds(0.4e-6));
  EXPECT_EQ(few.total, kMostSum);
  EXPECT_EQ(few.classes.begin()->first, 0);
  EXPECT_EQ(few.classes.rbegin()->first, kMostSum);
}

}  // namespace
}  // namespace tarn::test

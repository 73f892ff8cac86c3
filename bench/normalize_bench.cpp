// Both engines of the normalizer on the same statements, in one run; and the scanner on growing
// ones.
//
// Prints Google Benchmark's table, with the ratio of the two engines behind every pair, and at the
// end a table of all pairs. Times are the least of several repetitions, and the engines take turns,
// so that a noisy machine troubles the ratio little. Options are Google Benchmark's own; with
// --benchmark_out=FILE it writes JSON.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "logs/reader.h"
#include "sqlnorm/patterns/pattern_engine.h"
#include "sqlnorm/scanner/scanner_engine.h"
#include "support/growth_families.h"
#include "varied_statements.h"

namespace {

using Engine = std::string (*)(const std::string&);

std::string Patterns(const std::string& sql) { return tarn::sqlnorm::NormalizeByPatterns(sql); }
std::string Scanner(const std::string& sql) { return tarn::sqlnorm::NormalizeByScanner(sql); }

// What the names of a pair of benchmarks begin with.
constexpr std::string_view kPatterns = "patterns/";
constexpr std::string_view kScanner = "scanner/";

constexpr std::size_t kVariedStatements = 20'000;

struct StatementSet {
  std::string name;
  std::vector<std::string> statements;

  std::size_t Bytes() const {
    return std::accumulate(
        statements.begin(), statements.end(), std::size_t{0},
        [](std::size_t sum, const std::string& sql) { return sum + sql.size(); });
  }
};

std::vector<std::string> ReadExamples() {
  std::vector<std::string> statements;
  tarn::host::StatementReader reader({TARN_EXAMPLES "/statements.sql"}, {});
  tarn::host::StatementBatch batch;
  while (reader.Read(batch)) {
    for (std::size_t i = 0; i < batch.Size(); ++i) statements.emplace_back(batch[i]);
  }
  return statements;
}

std::string LongInList() {
  std::string sql = "select id, name from orders where id in (1000";
  for (int id = 1001; id < 1200; ++id) sql += ", " + std::to_string(id);
  return sql + ") and state = 1";
}

std::string ManyRows() {
  std::string sql = "insert into stocks (id, name, count) values (0, 'tea', 1)";
  for (int id = 1; id < 50; ++id) sql += ", (" + std::to_string(id) + ", 'tea', 1)";
  return sql;
}

std::vector<StatementSet> Sets() {
  return {
      {"examples", ReadExamples()},
      {"point select", {"select id, name, price from orders where id = 4711"}},
      {"join",
       {"select t0.id, t1.name from orders t0 inner join city t1 on (t0.city_id = t1.id) where "
        "t0.state = 3 order by t1.name"}},
      {"insert", {"insert into items (id, quantity, note) values (1, 3, 'gift wrap')"}},
      {"multi-row insert", {ManyRows()}},
      {"long IN list", {LongInList()}},
      {"decimals", {"update prices set low = 0.25, mean = 19.99, high = 2.5e3 where id = 7"}},
      {"aliases",
       {"select t3.a, t7.b, t9.c from x t3, y t7, z t9 where t3.k = t7.k and t7.k = t9.k"}},
      // Many, and in random order: what a branch predictor can't learn.
      {"varied", tarn::bench::VariedStatements(kVariedStatements)},
  };
}

void NormalizeAll(benchmark::State& state, const StatementSet& set, Engine engine) {
  for (auto _ : state) {
    for (const std::string& sql : set.statements) benchmark::DoNotOptimize(engine(sql));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(set.Bytes()));
}

void NormalizeGrowing(benchmark::State& state, const tarn::test::GrowthFamily& family) {
  const std::string sql = Grow(family, static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(Scanner(sql));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(sql.size()));
  state.SetComplexityN(static_cast<benchmark::IterationCount>(sql.size()));
}

// The console's usual table, and the least time of each benchmark at each length kept.
class Reporter : public benchmark::ConsoleReporter {
 public:
  using ConsoleReporter::ConsoleReporter;
  // Nanoseconds an iteration, by the statement's length (0 for benchmarks of one length).
  using Times = std::map<std::int64_t, double>;

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const double nanoseconds =
          1e9 * run.real_accumulated_time / static_cast<double>(run.iterations);
      const auto [entry, is_new] =
          least_[run.run_name.function_name].try_emplace(run.complexity_n, nanoseconds);
      entry->second = std::min(entry->second, nanoseconds);
    }
    // Aggregates are reported apart.
    if (runs.front().run_type == Run::RT_Iteration) PrintRatio(runs.front().run_name.function_name);
  }

  // Empty for a benchmark that has not run.
  Times Least(const std::string& benchmark) const {
    const auto found = least_.find(benchmark);
    return found == least_.end() ? Times() : found->second;
  }

 private:
  // Behind the second of a pair.
  void PrintRatio(const std::string& benchmark) const {
    if (!benchmark.starts_with(kScanner)) return;
    const std::string set = benchmark.substr(kScanner.size());
    const Times patterns = Least(std::string(kPatterns) + set);
    if (patterns.empty()) return;
    std::printf("%s: the scanner is %.1f times as fast as the patterns\n", set.c_str(),
                patterns.begin()->second / Least(benchmark).begin()->second);
  }

  std::map<std::string, Times> least_;
};

void PrintRatios(const std::vector<StatementSet>& sets, const Reporter& reporter) {
  std::printf("\n%-18s %10s %14s %14s %14s %8s\n", "statements", "bytes", "patterns ns",
              "scanner ns", "scanner MB/s", "ratio");
  for (const StatementSet& set : sets) {
    const Reporter::Times patterns = reporter.Least(std::string(kPatterns) + set.name);
    const Reporter::Times scanner = reporter.Least(std::string(kScanner) + set.name);
    if (patterns.empty() || scanner.empty()) continue;
    const double patterns_time = patterns.begin()->second;
    const double scanner_time = scanner.begin()->second;
    const auto count = static_cast<double>(set.statements.size());
    const auto bytes = static_cast<double>(set.Bytes());
    std::printf("%-18s %10.1f %14.1f %14.1f %14.1f %8.1f\n", set.name.c_str(), bytes / count,
                patterns_time / count, scanner_time / count, 1e3 * bytes / scanner_time,
                patterns_time / scanner_time);
  }
  std::printf("(bytes and nanoseconds per statement)\n");
}

// The k of time = c * length^k that fits best, by least squares of the logarithms.
double FittedExponent(const Reporter::Times& times) {
  const auto count = static_cast<double>(times.size());
  double x_sum = 0;
  double y_sum = 0;
  double xx_sum = 0;
  double xy_sum = 0;
  for (const auto& [length, nanoseconds] : times) {
    const double x = std::log(static_cast<double>(length));
    const double y = std::log(nanoseconds);
    x_sum += x;
    y_sum += y;
    xx_sum += x * x;
    xy_sum += x * y;
  }
  return (count * xy_sum - x_sum * y_sum) / (count * xx_sum - x_sum * x_sum);
}

void PrintGrowth(const Reporter& reporter) {
  std::printf("\n%-18s %14s %14s %8s\n", "growth", "ns/byte, short", "ns/byte, long", "exponent");
  for (const tarn::test::GrowthFamily& family : tarn::test::GrowthFamilies()) {
    const Reporter::Times times = reporter.Least("growth/" + family.name);
    if (times.size() < 2) continue;
    const auto per_byte = [](const auto& entry) {
      return entry.second / static_cast<double>(entry.first);
    };
    std::printf("%-18s %14.2f %14.2f %8.2f\n", family.name.c_str(), per_byte(*times.begin()),
                per_byte(*times.rbegin()), FittedExponent(times));
  }
  std::printf("(time grows with length^exponent: 1 is linear)\n");
}

int Run(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;

  const std::vector<StatementSet> sets = Sets();
  constexpr int kRepetitions = 7;
  constexpr double kSetSeconds = 0.05;
  for (const StatementSet& set : sets) {
    for (const auto& [name, engine] : {std::pair<std::string_view, Engine>(kPatterns, Patterns),
                                       std::pair<std::string_view, Engine>(kScanner, Scanner)}) {
      benchmark::RegisterBenchmark((std::string(name) + set.name).c_str(), NormalizeAll, set,
                                   engine)
          ->Repetitions(kRepetitions)
          ->MinTime(kSetSeconds)
          ->ReportAggregatesOnly(false);
    }
  }
  // Twice the statements a second on two threads: nothing is shared.
  benchmark::RegisterBenchmark("threads/examples", NormalizeAll, sets.front(), Scanner)
      ->ThreadRange(1, 2)
      ->MinTime(kSetSeconds)
      ->UseRealTime();
  constexpr int kShortest = 1 << 10;
  constexpr int kLongest = 1 << 20;
  constexpr double kGrowthSeconds = 0.02;
  for (const tarn::test::GrowthFamily& family : tarn::test::GrowthFamilies()) {
    benchmark::RegisterBenchmark(("growth/" + family.name).c_str(), NormalizeGrowing, family)
        ->RangeMultiplier(4)
        ->Range(kShortest, kLongest)
        ->MinTime(kGrowthSeconds)
        ->Complexity(benchmark::oN);
  }
  Reporter reporter(isatty(STDOUT_FILENO) != 0 ? Reporter::OO_ColorTabular : Reporter::OO_Tabular);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  PrintRatios(sets, reporter);
  PrintGrowth(reporter);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "normalize_bench: %s\n", error.what());
    return 2;
  }
}

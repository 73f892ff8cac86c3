// Compares both engines of the normalizer on the same statements, in one run, and measures the
// scanner on statements of growing length.
//
// Prints Google Benchmark's tables, and at the end the tables that the README quotes. Times are
// processor time, the least of several repetitions. The engines alternate within a repetition, so
// that a noisy machine changes their ratio little. Options are Google Benchmark's own: for example,
// --benchmark_out=FILE writes JSON.
#include <benchmark/benchmark.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "logs/reader.h"
#include "sqlnorm/patterns/pattern_engine.h"
#include "sqlnorm/scanner/scanner_engine.h"
#include "support/growth_families.h"
#include "varied_statements.h"

namespace {

// Normalizes in place, as hosts call it.
using Engine = void (*)(std::string&);

void Patterns(std::string& sql) { sql = tarn::sqlnorm::NormalizeByPatterns(sql); }
void Scanner(std::string& sql) { tarn::sqlnorm::NormalizeInPlaceByScanner(sql); }

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

std::string ThousandRows(const std::string& row) {
  constexpr int kRows = 1000;
  std::string sql = "insert into orders (id, name, created, price) values " + row;
  for (int i = 1; i < kRows; ++i) sql.append(", ").append(row);
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
      {"1,000 rows", {ThousandRows("(1, 'name', '2026-11-24', 1.50)")}},
      {"1,000 rows, calls", {ThousandRows("(1, 'name', NOW(), 1.50)")}},
      {"long IN list", {LongInList()}},
      {"decimals", {"update prices set low = 0.25, mean = 19.99, high = 2.5e3 where id = 7"}},
      {"aliases",
       {"select t3.a, t7.b, t9.c from x t3, y t7, z t9 where t3.k = t7.k and t7.k = t9.k"}},
      // Many statements in random order, which a branch predictor can't learn.
      {"varied", tarn::bench::VariedStatements(kVariedStatements)},
  };
}

// Loads the first lines of a statement into the cache. Otherwise a set larger than the cache would
// measure the machine's memory and not an engine. GCC may drop __builtin_prefetch.
void Prefetch(const std::string& sql) {
  constexpr std::size_t kLine = 64;
  constexpr std::size_t kMost = 512;
  for (std::size_t at = 0; at < std::min(sql.size(), kMost); at += kLine) {
#ifdef __x86_64__
    asm volatile("prefetcht0 %0" : : "m"(sql[at]));
#else
    __builtin_prefetch(&sql[at]);
#endif
  }
}

void NormalizeAll(const StatementSet& set, Engine engine) {
  const std::string* next = set.statements.data();
  const std::string* const last = &set.statements.back();
  std::string text;
  for (const std::string& sql : set.statements) {
    if (next != last) Prefetch(*++next);
    text = sql;
    engine(text);
    benchmark::DoNotOptimize(text);
  }
}

double ProcessorNanoseconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return 1e9 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec);
}

// One engine on one set. Makes so many passes at a time that the cost of the clock is negligible.
class Stopwatch {
 public:
  Stopwatch(const StatementSet& set, Engine engine) : set_(set), engine_(engine) {
    constexpr double kNanosecondsAtATime = 200'000;
    NormalizeAll(set_, engine_);
    const double pass = Time(1);
    passes_ = std::max(1, static_cast<int>(kNanosecondsAtATime / pass));
  }

  void Run() {
    total_ += Time(passes_);
    passes_run_ += passes_;
  }
  double NanosecondsPerStatement() const {
    return total_ / passes_run_ / static_cast<double>(set_.statements.size());
  }

 private:
  double Time(int passes) {
    const double begin = ProcessorNanoseconds();
    for (int i = 0; i < passes; ++i) NormalizeAll(set_, engine_);
    return ProcessorNanoseconds() - begin;
  }

  const StatementSet& set_;
  const Engine engine_;
  int passes_ = 1;
  double total_ = 0;
  double passes_run_ = 0;
};

// Names of counters, in nanoseconds a statement.
constexpr const char* kPatternsTime = "patterns";
constexpr const char* kScannerTime = "scanner";

void CompareEngines(benchmark::State& state, const StatementSet& set) {
  Stopwatch patterns(set, Patterns);
  Stopwatch scanner(set, Scanner);
  for (auto _ : state) {
    patterns.Run();
    scanner.Run();
  }
  state.counters[kPatternsTime] = patterns.NanosecondsPerStatement();
  state.counters[kScannerTime] = scanner.NanosecondsPerStatement();
}

void NormalizeOnThreads(benchmark::State& state, const StatementSet& set) {
  for (auto _ : state) NormalizeAll(set, Scanner);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(set.Bytes()));
}

void NormalizeGrowing(benchmark::State& state, const tarn::test::GrowthFamily& family) {
  const std::string sql = Grow(family, static_cast<std::size_t>(state.range(0)));
  std::string text;
  for (auto _ : state) {
    text = sql;
    Scanner(text);
    benchmark::DoNotOptimize(text);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(sql.size()));
}

// Prints the console's usual table, and keeps the least times.
class Reporter : public benchmark::ConsoleReporter {
 public:
  using ConsoleReporter::ConsoleReporter;

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const std::string name = run.run_name.function_name + '/' + run.run_name.args;
      Keep(name, 1e9 * run.cpu_accumulated_time / static_cast<double>(run.iterations));
      for (const auto& [counter, value] : run.counters) Keep(name + counter, value);
    }
  }

  // The least nanoseconds of a benchmark's counter or argument `which`; 0 if it has not run.
  double Least(const std::string& benchmark, const std::string& which) const {
    const auto found = least_.find(benchmark + '/' + which);
    return found == least_.end() ? 0 : found->second;
  }

 private:
  void Keep(const std::string& name, double nanoseconds) {
    double& least = least_.try_emplace(name, nanoseconds).first->second;
    least = std::min(least, nanoseconds);
  }

  std::map<std::string, double> least_;
};

// The tables are those of the README. Their columns are printed as they are quoted there, and the
// ratio is the quotient of the printed columns.

void PrintRatios(const std::vector<StatementSet>& sets, const Reporter& reporter) {
  const char* heading =
      "\n| statements | bytes | patterns, ns | scanner, ns | scanner, MB/s | ratio |\n"
      "|---|---|---|---|---|---|\n";
  for (const StatementSet& set : sets) {
    const double patterns = reporter.Least(set.name, kPatternsTime);
    const double scanner = reporter.Least(set.name, kScannerTime);
    if (scanner == 0) continue;
    std::printf("%s", std::exchange(heading, ""));
    const double bytes =
        static_cast<double>(set.Bytes()) / static_cast<double>(set.statements.size());
    std::printf("| %s | %.0f | %.0f | %.1f | %.0f | %.0f |\n", set.name.c_str(), bytes, patterns,
                scanner, 1e3 * bytes / scanner, patterns / scanner);
  }
}

constexpr std::array<std::int64_t, 4> kGrowthLengths{8 << 10, 64 << 10, 1 << 20, 16 << 20};

// The family of ordinary text with which the table of growth compares the others.
constexpr std::string_view kOrdinary = "Ordinary";

// Prints for each family and length the time of a byte, as a multiple of that of an ordinary text
// of the same length, and the greatest value of each column.
void PrintGrowth(const Reporter& reporter) {
  const auto time = [&reporter](std::string_view family, std::int64_t length) {
    return reporter.Least("growth/" + std::string(family), std::to_string(length));
  };
  if (time(kOrdinary, kGrowthLengths.back()) == 0) return;
  std::printf(
      "\n| times an ordinary text | 8 KB | 64 KB | 1 MB | 16 MB |\n|---|---|---|---|---|\n");
  const auto print = [](const std::string& name, const std::array<double, 4>& ratios) {
    std::printf("| %s | %.1f | %.1f | %.1f | %.1f |\n", name.c_str(), ratios[0], ratios[1],
                ratios[2], ratios[3]);
  };
  std::array<double, kGrowthLengths.size()> greatest{};
  for (const tarn::test::GrowthFamily& family : tarn::test::GrowthFamilies()) {
    std::array<double, kGrowthLengths.size()> ratios{};
    for (std::size_t i = 0; i < ratios.size(); ++i) {
      ratios[i] = time(family.name, kGrowthLengths[i]) / time(kOrdinary, kGrowthLengths[i]);
      greatest[i] = std::max(greatest[i], ratios[i]);
    }
    if (ratios.back() != 0) print(family.name, ratios);
  }
  print("the greatest", greatest);
}

int Run(int argc, char** argv) {
  // Defaults, before the caller's options, which may replace them.
  std::string min_time = "--benchmark_min_time=0.05";
  std::string repetitions = "--benchmark_repetitions=5";
  std::vector<char*> arguments{argv[0], min_time.data(), repetitions.data()};
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  int count = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

  const std::vector<StatementSet> sets = Sets();
  for (const StatementSet& set : sets) {
    benchmark::RegisterBenchmark(set.name.c_str(), CompareEngines, set);
  }
  // Two threads share nothing, so they should process twice as many statements a second as one.
  benchmark::RegisterBenchmark("threads/examples", NormalizeOnThreads, sets.front())
      ->ThreadRange(1, 2)
      ->UseRealTime();
  for (const tarn::test::GrowthFamily& family : tarn::test::GrowthFamilies()) {
    auto* const growth =
        benchmark::RegisterBenchmark(("growth/" + family.name).c_str(), NormalizeGrowing, family);
    growth->Repetitions(2);
    for (const std::int64_t length : kGrowthLengths) growth->Arg(length);
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

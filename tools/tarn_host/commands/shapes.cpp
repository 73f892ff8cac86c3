#include "tarn_host/commands.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "logs/reader.h"
#include "plugin/plugin.h"
#include "shapes/shape_counter.h"
#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/input_options.h"
#include "tarn_host/interrupt.h"
#include "tarn_host/output.h"
#include "tarn_host/plugin_option.h"
#include "tarn_host/progress.h"
#include "tarn_host/shape_report.h"

namespace tarn::host {
namespace {

constexpr unsigned kMostThreads = 256;
// More than fit into memory.
constexpr std::uint64_t kMostShapes = std::numeric_limits<std::uint32_t>::max();

struct ShapesOptions {
  InputOptions input;
  ReportOptions report;
  bool exact = false;
  bool json = false;
  std::uint64_t threads = std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
  std::string plugin;
};

// The statements of all files, one file after another. Next is thread-safe, the rest is not.
class StatementQueue {
 public:
  StatementQueue(const InputOptions& options, InterruptWatch& watch)
      : reader_(options.FilesOrStandardInput(), options.Reading(), &watch),
        progress_(options.FilesOrStandardInput()) {}

  // As BatchSource.
  bool Next(StatementBatch& batch, std::uint64_t& position) {
    const std::lock_guard lock(mutex_);
    for (;;) {
      try {
        const bool more = reader_.Read(batch);
        for (Remark& remark : reader_.TakeRemarks()) {
          AddProblem(std::move(remark.text), remark.is_problem ? kExitFailed : kExitSuccess);
        }
        if (!more) return false;
        position = batch.FirstNumber();
        progress_.Show(reader_.BytesRead(), position + batch.Size() - 1);
        return true;
      } catch (const InputError& error) {
        AddProblem(error.what(), kExitTrouble);
      }
    }
  }

  void AddProblem(std::string problem, int exit_code) {
    problems_.push_back(std::move(problem));
    exit_code_ = std::max(exit_code_, exit_code);
  }

  // What went wrong with the inputs, and the exit code that comes of it.
  const std::vector<std::string>& Problems() const noexcept { return problems_; }
  int ExitCode() const noexcept { return exit_code_; }

  void ClearProgress() { progress_.Clear(); }

  // "NAME: statement N: REASON", N counting within its input.
  std::string Describe(const StatementFailure& failure) const {
    return reader_.PlaceOf(failure.position) + ": " + failure.reason;
  }

 private:
  std::mutex mutex_;
  StatementReader reader_;
  ProgressBar progress_;
  std::vector<std::string> problems_;
  int exit_code_ = kExitSuccess;
};

int Shapes(const ShapesOptions& options) {
  const Plugin plugin(ChosenPlugin(options.plugin));
  InterruptWatch watch;
  StatementQueue queue(options.input, watch);
  CountOptions counting;
  counting.threads = static_cast<unsigned>(options.threads);
  counting.fold = !options.exact;
  const ShapeCount count =
      CountShapes([&queue](StatementBatch& batch,
                           std::uint64_t& position) { return queue.Next(batch, position); },
                  plugin.Product(), counting);
  queue.ClearProgress();
  if (watch.Interrupted()) {
    queue.AddProblem("shapes: interrupted; this is what was counted so far", kExitInterrupted);
  }

  Output output;
  if (options.json) {
    PrintJson(count, options.report, plugin.Product(), output);
  } else {
    PrintTable(count, options.report, output);
  }
  output.Flush();

  for (const std::string& problem : queue.Problems()) ReportError(problem);
  if (!count.first_failure) return queue.ExitCode();
  const std::string first = queue.Describe(*count.first_failure);
  ReportError(count.failed == 1
                  ? "1 statement failed: " + first
                  : std::to_string(count.failed) + " statements failed, the first: " + first);
  return std::max(queue.ExitCode(), kExitFailed);
}

}  // namespace

void AddShapesCommand(CommandLine& line) {
  const auto options = std::make_shared<ShapesOptions>();
  Command command = line.Add("shapes", "Count statements by shape, and sum up how long they took",
                             [options] { return Shapes(*options); });
  AddInputOptions(command, options->input);
  command.Flag("--exact", options->exact,
               "Count by the canonical text, in which values and lists stay");
  command.Choice(
      "--sort", options->report.order,
      std::map<std::string, ShapeOrder>{
          {"count", ShapeOrder::kCount}, {"time", ShapeOrder::kTime}, {"max", ShapeOrder::kMax}},
      "ORDER",
      "What comes first: the most statements (count), the most time in all (time, the default "
      "where times are known) or the slowest statement (max)");
  command.Count("--top", options->report.top, kMostShapes,
                "Print the first N shapes, sum up the others");
  command.Count("--min-count", options->report.min_count, kMostShapes,
                "Sum up the shapes of fewer than N statements");
  command.Flag("--examples", options->report.examples,
               "Print the first statement of each shape below it");
  command.Flag("--json", options->json,
               "Print JSON, with examples; bytes that are not UTF-8 are replaced");
  command.Count("--threads", options->threads, kMostThreads,
                "Count on N threads (default: one per processor)");
  AddPluginOption(command, options->plugin);
  command.Footer(
      "Statements are of one shape when they differ in values, in the length of lists of them, in\n"
      "the number of VALUES rows, in comments, case and spacing, and in what the canonical text\n"
      "unites. Where the input is a log that tells times, they are summed up. Statements that "
      "fail\n"
      "are left out and reported. Ctrl-C ends the input: what was counted so far is printed.\n\n"
      "Examples:\n"
      "  tarn_host shapes statements.sql\n"
      "  tarn_host shapes --input=slowlog --top 10 mysql-slow.log.1.gz\n"
      "  tarn_host shapes --input=csvlog --sort=max --examples postgresql.csv\n"
      "  tarn_host shapes --json statements.sql");
}

}  // namespace tarn::host

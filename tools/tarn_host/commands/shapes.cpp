#include "tarn_host/commands.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/input/options.h"
#include "tarn_host/input/reader.h"
#include "tarn_host/interrupt.h"
#include "tarn_host/output.h"
#include "tarn_host/plugin.h"
#include "tarn_host/plugin_option.h"
#include "tarn_host/progress.h"
#include "tarn_host/shape_counter.h"

namespace tarn::host {
namespace {

constexpr unsigned kMostThreads = 256;
// More than fit into memory.
constexpr std::size_t kMostShapes = std::numeric_limits<std::uint32_t>::max();

struct ShapesOptions {
  InputOptions input;
  std::size_t top = kMostShapes;
  bool json = false;
  unsigned threads = std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
  std::string plugin;
};

// The statements of all files, one file after another. Next is thread-safe, the rest is not.
class StatementQueue {
 public:
  StatementQueue(const InputOptions& options, InterruptWatch& watch)
      : options_(options),
        files_(options.FilesOrStandardInput()),
        watch_(watch),
        progress_(TotalSize(files_)) {}

  // As BatchSource.
  bool Next(StatementBatch& batch, std::uint64_t& position) {
    const std::lock_guard lock(mutex_);
    while (OpenReader()) {
      try {
        if (reader_->Read(batch)) {
          position = starts_.back().position + batch.FirstNumber() - 1;
          next_position_ = position + batch.Size();
          progress_.Show(bytes_before_ + reader_->BytesRead());
          return true;
        }
        if (const std::string problem = reader_->Problem(); !problem.empty()) {
          AddProblem(problem, kExitFailed);
        }
      } catch (const InputError& error) {
        AddProblem(error.what(), kExitTrouble);
      }
      bytes_before_ += reader_->BytesRead();
      reader_.reset();
    }
    return false;
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
    const auto start = std::find_if(
        starts_.rbegin(), starts_.rend(),
        [&failure](const InputStart& one) { return one.position <= failure.position; });
    return StatementReason(start->name, failure.position - start->position + 1, failure.reason);
  }

 private:
  // Where the statements of one input begin among all.
  struct InputStart {
    std::string name;
    std::uint64_t position;
  };

  // False when no file is left.
  bool OpenReader() {
    while (!reader_ && next_file_ < files_.size() && !watch_.Interrupted()) {
      const std::string& file = files_[next_file_++];
      try {
        reader_.emplace(file, options_.format, options_.dialect, &watch_);
        starts_.push_back({reader_->Name(), next_position_});
      } catch (const InputError& error) {
        AddProblem(error.what(), kExitTrouble);
      }
    }
    return reader_.has_value();
  }

  const InputOptions& options_;
  const std::vector<std::string> files_;
  InterruptWatch& watch_;
  std::mutex mutex_;
  ProgressBar progress_;
  std::size_t next_file_ = 0;
  std::optional<StatementReader> reader_;
  std::uint64_t next_position_ = 1;
  // Bytes of the files that are done with.
  std::uint64_t bytes_before_ = 0;
  std::vector<InputStart> starts_;
  std::vector<std::string> problems_;
  int exit_code_ = kExitSuccess;
};

using ShapeEntry = std::pair<const std::string, Shape>;

// The `top` most frequent shapes, most frequent first, then by first appearance.
std::vector<const ShapeEntry*> MostFrequent(const ShapeCount& count, std::size_t top) {
  std::vector<const ShapeEntry*> entries;
  entries.reserve(count.shapes.size());
  for (const ShapeEntry& entry : count.shapes) entries.push_back(&entry);
  const auto kept = static_cast<std::ptrdiff_t>(std::min(top, entries.size()));
  std::partial_sort(entries.begin(), entries.begin() + kept, entries.end(),
                    [](const ShapeEntry* a, const ShapeEntry* b) {
                      if (a->second.count != b->second.count) {
                        return a->second.count > b->second.count;
                      }
                      return a->second.first < b->second.first;
                    });
  entries.resize(static_cast<std::size_t>(kept));
  return entries;
}

double ShareOf(const Shape& shape, const ShapeCount& count) {
  return static_cast<double>(shape.count) / static_cast<double>(count.counted);
}

void PrintTable(const ShapeCount& count, std::size_t top, Output& output) {
  output.Write(std::to_string(count.counted) + " statements, " +
               std::to_string(count.shapes.size()) + " shapes\n");
  for (const ShapeEntry* entry : MostFrequent(count, top)) {
    const Shape& shape = entry->second;
    char numbers[64];
    const int length =
        std::snprintf(numbers, sizeof numbers, "%10llu %6.2f %%  ",
                      static_cast<unsigned long long>(shape.count), 100 * ShareOf(shape, count));
    output.Write({numbers, static_cast<std::size_t>(length)});
    output.Write(OneLine(shape.example));
    output.Write("\n");
  }
}

void PrintJson(const ShapeCount& count, std::size_t top, Output& output) {
  nlohmann::ordered_json shapes = nlohmann::ordered_json::array();
  for (const ShapeEntry* entry : MostFrequent(count, top)) {
    const auto& [canonical, shape] = *entry;
    shapes.push_back({{"count", shape.count},
                      {"share", ShareOf(shape, count)},
                      {"canonical", canonical},
                      {"example", shape.example}});
  }
  const nlohmann::ordered_json document{{"statements", count.counted},
                                        {"failed", count.failed},
                                        {"shape_count", count.shapes.size()},
                                        {"shapes", std::move(shapes)}};
  constexpr int kIndent = 2;
  // Statements are bytes, JSON is UTF-8: what is not becomes U+FFFD.
  output.Write(document.dump(kIndent, ' ', false, nlohmann::json::error_handler_t::replace));
  output.Write("\n");
}

int Shapes(const ShapesOptions& options) {
  const Plugin plugin(ChosenPlugin(options.plugin));
  InterruptWatch watch;
  StatementQueue queue(options.input, watch);
  const ShapeCount count =
      CountShapes([&queue](StatementBatch& batch,
                           std::uint64_t& position) { return queue.Next(batch, position); },
                  plugin.Product(), options.threads);
  queue.ClearProgress();
  if (watch.Interrupted()) {
    queue.AddProblem("shapes: interrupted; this is what was counted so far", kExitInterrupted);
  }

  Output output;
  if (options.json) {
    PrintJson(count, options.top, output);
  } else {
    PrintTable(count, options.top, output);
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

void AddShapesCommand(CLI::App& app, int& exit_code) {
  const auto options = std::make_shared<ShapesOptions>();
  CLI::App* command =
      app.add_subcommand("shapes", "Count statements by shape, most frequent shape first");
  AddInputOptions(*command, options->input);
  command->add_option("--top", options->top, "Print no more than the N most frequent shapes")
      ->check(CLI::Range(std::size_t{1}, kMostShapes))
      ->type_name("N");
  command->add_flag("--json", options->json,
                    "Print JSON, with the canonical texts; bytes that are not UTF-8 are replaced");
  command
      ->add_option("--threads", options->threads, "Count on N threads (default: one per processor)")
      ->check(CLI::Range(1U, kMostThreads))
      ->type_name("N");
  AddPluginOption(*command, options->plugin);
  command->footer(
      "Statements with one canonical text are of one shape. For each shape: how many statements\n"
      "it has, their share of all, and the first of them. Statements that fail are left out and\n"
      "reported. Ctrl-C ends the input: what was counted so far is printed.\n\n"
      "Examples:\n"
      "  tarn_host shapes statements.sql\n"
      "  tarn_host shapes --top 10 --input=lines query.log\n"
      "  tarn_host shapes --json statements.sql");
  command->callback([options, &exit_code] { exit_code = Shapes(*options); });
}

}  // namespace tarn::host

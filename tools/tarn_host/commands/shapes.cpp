#include "tarn_host/commands.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
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
  std::vector<std::string> files;
  StatementFormat format = StatementFormat::kSql;
  std::size_t top = kMostShapes;
  bool json = false;
  unsigned threads = std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
  std::string plugin;
};

// Where the statements of one input begin among all.
struct InputStart {
  std::string name;
  std::uint64_t position;
};

struct ShapesResult {
  ShapeCount count;
  std::vector<InputStart> inputs;
  // What went wrong with the inputs.
  std::vector<std::string> problems;
  int exit_code = kExitSuccess;
};

ShapesResult CountShapes(const ShapesOptions& options, impl_dao::CProductInterface& product) {
  const std::vector<std::string> files = FilesOrStandardInput(options.files);
  ShapesResult result;
  InterruptWatch watch;
  ProgressBar progress(TotalSize(files));
  ShapeCounter counter(product, options.threads);

  std::uint64_t next_position = 1;
  for (const std::string& file : files) {
    if (watch.Interrupted()) break;
    try {
      StatementReader reader(file, options.format, &watch);
      result.inputs.push_back({reader.Name(), next_position});
      const std::uint64_t start = next_position;
      for (StatementBatch batch; reader.Read(batch); batch = counter.SpareBatch()) {
        const std::uint64_t position = start + batch.FirstNumber() - 1;
        next_position = position + batch.Size();
        counter.Add(std::move(batch), position);
        progress.Show(counter.BytesDone());
      }
      const char* open = watch.Interrupted() ? nullptr : reader.OpenAtEnd();
      if (open != nullptr) {
        result.problems.push_back(reader.Name() + ": ends inside a " + open +
                                  " that is never closed");
        result.exit_code = std::max(result.exit_code, kExitFailed);
      }
    } catch (const InputError& error) {
      result.problems.emplace_back(error.what());
      result.exit_code = kExitTrouble;
    }
  }

  result.count = counter.Finish(watch.Interrupted());
  if (result.count.failed > 0) result.exit_code = std::max(result.exit_code, kExitFailed);
  if (watch.Interrupted()) {
    result.problems.emplace_back("shapes: interrupted; this is what was counted so far");
    result.exit_code = kExitInterrupted;
  }
  return result;
}

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

// "NAME: statement N: REASON", N counting within its input.
std::string Describe(const StatementFailure& failure, const std::vector<InputStart>& inputs) {
  const auto input = std::find_if(
      inputs.rbegin(), inputs.rend(),
      [&failure](const InputStart& start) { return start.position <= failure.position; });
  return StatementReason(input->name, failure.position - input->position + 1, failure.reason);
}

int Shapes(const ShapesOptions& options) {
  const Plugin plugin(ChosenPlugin(options.plugin));
  const ShapesResult result = CountShapes(options, plugin.Product());

  Output output;
  if (options.json) {
    PrintJson(result.count, options.top, output);
  } else {
    PrintTable(result.count, options.top, output);
  }
  output.Flush();

  for (const std::string& problem : result.problems) ReportError(problem);
  if (result.count.first_failure) {
    const std::string first = Describe(*result.count.first_failure, result.inputs);
    const std::uint64_t failed = result.count.failed;
    ReportError(failed == 1 ? "1 statement failed: " + first
                            : std::to_string(failed) + " statements failed, the first: " + first);
  }
  return result.exit_code;
}

}  // namespace

void AddShapesCommand(CLI::App& app, int& exit_code) {
  const auto options = std::make_shared<ShapesOptions>();
  CLI::App* command =
      app.add_subcommand("shapes", "Count statements by shape, most frequent shape first");
  AddFilesArgument(*command, options->files);
  AddInputOption(*command, options->format);
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

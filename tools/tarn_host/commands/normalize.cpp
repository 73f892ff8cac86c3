#include "tarn_host/commands.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/input/options.h"
#include "tarn_host/input/reader.h"
#include "tarn_host/normalize_call.h"
#include "tarn_host/output.h"
#include "tarn_host/plugin.h"
#include "tarn_host/plugin_option.h"

namespace tarn::host {
namespace {

struct NormalizeOptions {
  InputOptions input;
  bool pairs = false;
  std::string plugin;
};

// Prints canonical texts in the format of the input.
class CanonicalPrinter {
 public:
  CanonicalPrinter(Output& output, const NormalizeOptions& options)
      : output_(output), options_(options) {}

  void Print(std::string_view statement, std::string_view canonical) {
    const bool nul = options_.input.format == StatementFormat::kNul;
    if (options_.pairs && nul) {
      output_.Write(statement);
      output_.Write(kNul);
    } else if (options_.pairs) {
      output_.Write(statement);
      output_.Write(output_.Coloured() ? "\n\x1B[1;32m=>\x1B[0m " : "\n=> ");
    }
    output_.Write(canonical);
    if (nul) {
      output_.Write(kNul);
    } else if (options_.pairs) {
      output_.Write("\n\n");
    } else {
      output_.Write(options_.input.format == StatementFormat::kSql ? ";\n" : "\n");
    }
  }

 private:
  static constexpr std::string_view kNul{"\0", 1};

  Output& output_;
  const NormalizeOptions& options_;
};

// Normalizes the statements of one input; returns an exit code. Throws ToolError.
int NormalizeInput(const std::string& file, const NormalizeOptions& options,
                   impl_dao::CProductInterface& product, Output& output) {
  CanonicalPrinter printer(output, options);
  int exit_code = kExitSuccess;
  const auto report = [&](const std::string& message) {
    // Keeps the order on a screen that shows both streams.
    output.Flush();
    ReportError(message);
    exit_code = kExitFailed;
  };

  StatementReader reader(file, options.input.format, options.input.dialect);
  StatementBatch batch;
  std::string sql;
  while (reader.Read(batch)) {
    for (std::size_t index = 0; index < batch.Size(); ++index) {
      sql = batch[index];
      if (const auto reason = CallNormalize(product, sql)) {
        report(StatementReason(reader.Name(), batch.FirstNumber() + index, *reason));
      } else {
        printer.Print(batch[index], sql);
      }
    }
    output.Flush();
  }
  const std::string problem = reader.Problem();
  if (!problem.empty()) report(problem);
  return exit_code;
}

int Normalize(const NormalizeOptions& options) {
  const Plugin plugin(ChosenPlugin(options.plugin));
  Output output;
  int exit_code = kExitSuccess;
  for (const std::string& file : options.input.FilesOrStandardInput()) {
    try {
      exit_code = std::max(exit_code, NormalizeInput(file, options, plugin.Product(), output));
    } catch (const InputError& error) {
      output.Flush();
      ReportError(error.what());
      exit_code = kExitTrouble;
    }
  }
  return exit_code;
}

}  // namespace

void AddNormalizeCommand(CLI::App& app, int& exit_code) {
  const auto options = std::make_shared<NormalizeOptions>();
  CLI::App* command = app.add_subcommand("normalize", "Print the canonical texts of statements");
  AddInputOptions(*command, options->input);
  command->add_flag("--pairs", options->pairs, "Print each statement before its canonical text");
  AddPluginOption(*command, options->plugin);
  command->footer(
      "The texts come out separated as the statements came in; with --input=nul every byte is\n"
      "kept. A statement that fails is reported with its number, the others still come out, and\n"
      "the exit code is 1.\n\n"
      "Examples:\n"
      "  tarn_host normalize statements.sql\n"
      "  tarn_host normalize --pairs statements.sql\n"
      "  echo 'select 0x1F from tab t3' | tarn_host normalize --input=lines");
  command->callback([options, &exit_code] { exit_code = Normalize(*options); });
}

}  // namespace tarn::host

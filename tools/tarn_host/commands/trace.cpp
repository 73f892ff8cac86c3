#include "tarn_host/commands.h"

#include <fmt/format.h>

#include <cstddef>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "logs/input.h"
#include "plugin/normalize_call.h"
#include "plugin/plugin.h"
#include "sqlnorm/patterns/pattern_engine.h"
#include "tarn_host/errors.h"
#include "tarn_host/output.h"

namespace tarn::host {
namespace {

// Prints a line: the label, and the text in brackets, which show blanks at its ends.
void PrintRow(Output& output, std::string_view label, std::string_view text) {
  const std::string row = output.Coloured("1", fmt::format("{:<35} ", label));
  output.Write(fmt::format("{}[{}]\n", row, OneLine(text)));
}

// Prints the text after each step that changed it.
class ChangePrinter final : public sqlnorm::StepObserver {
 public:
  ChangePrinter(Output& output, std::string text) : output_(output), text_(std::move(text)) {}

  void AfterStep(int step, const char* name, const std::string& text) override {
    last_step_ = step;
    if (text == text_) return;
    PrintRow(output_, fmt::format("{:2} {}", step, name), text);
    text_ = text;
  }

  int LastStep() const noexcept { return last_step_; }

 private:
  Output& output_;
  std::string text_;
  int last_step_ = 0;
};

// Reads the statement from standard input. Throws ToolError if it is longer than 1 MiB, or endless.
std::string ReadStatement() {
  constexpr std::size_t kMaxBytes = std::size_t{1} << 20U;
  Input input(kStandardInput);
  std::string statement(kMaxBytes + 1, '\0');
  std::size_t filled = 0;
  while (const std::size_t got =
             input.ReadBytes(statement.data() + filled, statement.size() - filled)) {
    filled += got;
  }
  if (filled > kMaxBytes) throw ToolError("trace: standard input holds more than 1 MiB");
  statement.resize(filled);
  return statement;
}

}  // namespace

int Trace(const TraceOptions& options) {
  std::optional<Plugin> plugin;
  if (!options.plugin.empty()) plugin.emplace(ChosenPlugin(options.plugin));
  const std::string input = options.statement ? *options.statement : ReadStatement();
  Output output;
  PrintRow(output, "input", input);
  ChangePrinter printer(output, input);
  std::string result;
  try {
    result = sqlnorm::NormalizeByPatterns(input, &printer);
  } catch (const ToolError&) {
    throw;
  } catch (const std::exception& error) {
    output.Flush();
    ReportError(fmt::format("trace: step {}: {}", printer.LastStep() + 1, NormalizeFailure(error)));
    return kExitFailed;
  }
  PrintRow(output, "result", result);
  std::string reason;
  if (plugin) {
    std::string canonical = input;
    if (const auto thrown = CallNormalize(plugin->Product(), canonical)) {
      reason = "the plug-in fails: " + *thrown;
    } else {
      PrintRow(output, "plug-in", canonical);
      if (canonical != result) reason = "the plug-in's text is not the result of these steps";
    }
  }
  output.Flush();
  if (reason.empty()) return kExitSuccess;
  ReportError("trace: " + options.plugin + ": " + reason);
  return kExitFailed;
}

}  // namespace tarn::host

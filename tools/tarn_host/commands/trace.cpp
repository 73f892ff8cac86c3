#include "tarn_host/commands.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sqlnorm/patterns/pattern_engine.h"
#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/input/file.h"
#include "tarn_host/output.h"

namespace tarn::host {
namespace {

// One line a text: a label, and the text in brackets, which show blanks at its ends.
class TraceTable {
 public:
  explicit TraceTable(Output& output) : output_(output) {}

  void Row(std::string_view label, std::string_view text) {
    constexpr std::size_t kLabelWidth = 36;
    std::string row(label);
    row.resize(std::max(kLabelWidth, row.size() + 1), ' ');
    if (output_.Coloured()) row = "\x1B[1m" + row + "\x1B[0m";
    output_.Write(row + '[' + OneLine(text) + "]\n");
  }

 private:
  Output& output_;
};

// Prints the text after each step that changed it.
class ChangePrinter final : public sqlnorm::StepObserver {
 public:
  ChangePrinter(TraceTable& table, std::string text) : table_(table), text_(std::move(text)) {}

  void AfterStep(int step, const char* name, const std::string& text) override {
    last_step_ = step;
    if (text == text_) return;
    table_.Row((step < 10 ? " " : "") + std::to_string(step) + ' ' + name, text);
    text_ = text;
  }

  int LastStep() const noexcept { return last_step_; }

 private:
  TraceTable& table_;
  std::string text_;
  int last_step_ = 0;
};

int Trace(const std::optional<std::string>& statement) {
  const std::string input = statement ? *statement : ReadAll(kStandardInput);
  Output output;
  TraceTable table(output);
  table.Row("input", input);
  ChangePrinter printer(table, input);
  std::string result;
  try {
    result = sqlnorm::NormalizeByPatterns(input, &printer);
  } catch (const ToolError&) {
    throw;
  } catch (const std::exception& error) {
    output.Flush();
    ReportError("trace: step " + std::to_string(printer.LastStep() + 1) + ": " + error.what());
    return kExitFailed;
  }
  table.Row("result", result);
  output.Flush();
  return kExitSuccess;
}

}  // namespace

void AddTraceCommand(CLI::App& app, int& exit_code) {
  const auto statement = std::make_shared<std::optional<std::string>>();
  CLI::App* command =
      app.add_subcommand("trace", "Print what each rewrite step makes of a statement");
  command->add_option("STATEMENT", *statement, "The statement; standard input when absent")
      ->type_name("");
  command->footer(
      "Prints the text after each of the 23 steps that changed it, with the step's number and\n"
      "name. Control characters are shown as \\n, \\t and the like.\n\n"
      "Examples:\n"
      "  tarn_host trace \"select t3.a, 1.50 from tab t3 where (t3.id = 0x1F)\"\n"
      "  tarn_host trace < statement.sql");
  command->callback([statement, &exit_code] { exit_code = Trace(*statement); });
}

}  // namespace tarn::host

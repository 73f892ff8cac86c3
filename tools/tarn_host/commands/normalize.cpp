#include "tarn_host/commands.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "logs/reader.h"
#include "plugin/normalize_call.h"
#include "plugin/plugin.h"
#include "tarn_host/errors.h"
#include "tarn_host/output.h"
#include "tarn_host/progress.h"

namespace tarn::host {
namespace {

class Normalizer {
 public:
  explicit Normalizer(const NormalizeOptions& options)
      : options_(options), plugin_(ChosenPlugin(options.plugin)) {
    // On a screen, the line would appear between the texts.
    if (output_.Width() == 0) progress_.emplace(options.input.files);
  }

  // Returns the exit code. Throws ToolError.
  int Run() {
    StatementReader reader(options_.input.files, options_.input.Reading());
    StatementBatch batch;
    for (bool more = true; more;) {
      try {
        more = reader.Read(batch);
        if (more) Print(reader, batch);
      } catch (const InputError& error) {
        Report(error.what(), kExitTrouble);
      }
      for (const Remark& remark : reader.TakeRemarks()) {
        Report(remark.text, remark.is_problem ? kExitFailed : kExitSuccess);
      }
    }
    return exit_code_;
  }

 private:
  void Print(const StatementReader& reader, const StatementBatch& batch) {
    for (std::size_t index = 0; index < batch.Size(); ++index) {
      const std::uint64_t number = batch.FirstNumber() + index;
      std::string sql(batch[index]);
      if (const auto reason = CallNormalize(plugin_.Product(), sql)) {
        Report(reader.PlaceOf(number) + ": " + *reason, kExitFailed);
      } else {
        PrintText(batch[index], sql);
      }
    }
    output_.Flush();
    if (progress_) progress_->Show(reader.BytesRead(), batch.FirstNumber() + batch.Size() - 1);
  }

  // In the format of the input.
  void PrintText(std::string_view statement, std::string_view canonical) {
    constexpr std::string_view kNul("\0", 1);
    const Format* const format = options_.input.reading.format;
    const std::string_view terminator = format == nullptr ? ";\n" : format->terminator;
    const bool nul = terminator == kNul;
    if (options_.pairs) {
      output_.WriteUntrusted(statement);
      output_.Write(nul ? std::string(kNul) : '\n' + output_.Coloured("1;32", "=>") + ' ');
    }
    output_.WriteUntrusted(canonical);
    output_.Write(options_.pairs && !nul ? "\n\n" : terminator);
  }

  void Report(const std::string& message, int exit_code) {
    // On a screen that shows both streams, the message comes after the texts before it.
    output_.Flush();
    if (progress_) progress_->Clear();
    ReportError(message);
    exit_code_ = std::max(exit_code_, exit_code);
  }

  const NormalizeOptions& options_;
  const Plugin plugin_;
  Output output_;
  std::optional<ProgressBar> progress_;
  int exit_code_ = kExitSuccess;
};

}  // namespace

int Normalize(const NormalizeOptions& options) { return Normalizer(options).Run(); }

}  // namespace tarn::host

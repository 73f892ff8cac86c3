#pragma once

#include <optional>
#include <string>
#include <vector>

#include "logs/reader.h"
#include "tarn_host/command_line.h"

namespace tarn::host {

// What a command reads, as the command line names it.
struct InputOptions {
  std::vector<std::string> files;
  StatementFormat format = StatementFormat::kSql;
  // Whether the inputs are reports of `shapes`.
  bool report = false;
  // Unless a person has chosen one, that of the server that wrote the log, or MySQL's.
  Dialect UsedDialect() const noexcept;
  std::optional<Dialect> dialect;

  // `files`, or standard input alone when there are none.
  std::vector<std::string> FilesOrStandardInput() const;
};

// Adds FILE..., --input=FORMAT and --dialect=NAME to `command`. Requires: `options` outlives the
// parsing.
void AddInputOptions(Command& command, InputOptions& options);

}  // namespace tarn::host

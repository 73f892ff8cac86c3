#include "tarn_host/input_options.h"

#include <string>
#include <vector>

namespace tarn::host {

std::vector<std::string> InputOptions::FilesOrStandardInput() const {
  return files.empty() ? std::vector<std::string>{kStandardInput} : files;
}

Dialect InputOptions::UsedDialect() const noexcept {
  return dialect.value_or(format == StatementFormat::kCsvLog ? Dialect::kPostgres
                                                             : Dialect::kMysql);
}

void AddInputOptions(Command& command, InputOptions& options) {
  command.Choice(
      "--input", options.format, StatementFormats(), "FORMAT",
      "How statements lie in the input: separated by semicolons (sql, the default), newlines "
      "(lines) or NUL bytes (nul), or in MySQL's slow query log (slowlog) or general log "
      "(general), or in PostgreSQL's CSV log (csvlog)");
  command.Choice(
      "--dialect", options.dialect, Dialects(), "NAME",
      "Whose quotes, comments and separators: mysql (the default, except for csvlog), ansi or "
      "postgres");
  command.Arguments("FILE", options.files,
                    "Files of statements, packed by gzip or not; standard input for \"-\" or none");
}

}  // namespace tarn::host

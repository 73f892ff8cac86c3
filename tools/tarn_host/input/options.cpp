#include "tarn_host/input/options.h"

#include <map>
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
  const std::map<std::string, StatementFormat> formats{{"sql", StatementFormat::kSql},
                                                       {"lines", StatementFormat::kLines},
                                                       {"nul", StatementFormat::kNul},
                                                       {"slowlog", StatementFormat::kSlowLog},
                                                       {"general", StatementFormat::kGeneralLog},
                                                       {"csvlog", StatementFormat::kCsvLog}};
  command.Choice(
      "--input", options.format, formats, "FORMAT",
      "How statements lie in the input: separated by semicolons (sql, the default), newlines "
      "(lines) or NUL bytes (nul), or in MySQL's slow query log (slowlog) or general log "
      "(general), or in PostgreSQL's CSV log (csvlog)");
  const std::map<std::string, Dialect> dialects{
      {"mysql", Dialect::kMysql}, {"ansi", Dialect::kAnsi}, {"postgres", Dialect::kPostgres}};
  command.Choice(
      "--dialect", options.dialect, dialects, "NAME",
      "Whose quotes, comments and separators: mysql (the default, except for csvlog), ansi or "
      "postgres");
  command.Arguments("FILE", options.files,
                    "Files of statements, packed by gzip or not; standard input for \"-\" or none");
}

}  // namespace tarn::host

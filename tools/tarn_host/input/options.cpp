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

void AddInputOptions(CLI::App& command, InputOptions& options) {
  static const std::map<std::string, StatementFormat> formats{
      {"sql", StatementFormat::kSql},
      {"lines", StatementFormat::kLines},
      {"nul", StatementFormat::kNul},
      {"slowlog", StatementFormat::kSlowLog},
      {"general", StatementFormat::kGeneralLog},
      {"csvlog", StatementFormat::kCsvLog}};
  static const std::map<std::string, Dialect> dialects{
      {"mysql", Dialect::kMysql}, {"ansi", Dialect::kAnsi}, {"postgres", Dialect::kPostgres}};
  command
      .add_option_function<std::string>(
          "--input", [&options](const std::string& name) { options.format = formats.at(name); },
          "How statements lie in the input: separated by semicolons (sql, the default), newlines "
          "(lines) or NUL bytes (nul), or in MySQL's slow query log (slowlog) or general log "
          "(general), or in PostgreSQL's CSV log (csvlog)")
      ->check(CLI::IsMember(&formats))
      ->type_name("FORMAT");
  command
      .add_option_function<std::string>(
          "--dialect", [&options](const std::string& name) { options.dialect = dialects.at(name); },
          "Whose quotes, comments and separators: mysql (the default, except for csvlog), ansi or "
          "postgres")
      ->check(CLI::IsMember(&dialects))
      ->type_name("NAME");
  command
      .add_option("FILE", options.files,
                  "Files of statements, packed by gzip or not; standard input for \"-\" or none")
      ->type_name("");
}

}  // namespace tarn::host

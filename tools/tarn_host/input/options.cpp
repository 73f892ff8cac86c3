#include "tarn_host/input/options.h"

#include <map>
#include <string>
#include <vector>

namespace tarn::host {

std::vector<std::string> InputOptions::FilesOrStandardInput() const {
  return files.empty() ? std::vector<std::string>{kStandardInput} : files;
}

void AddInputOptions(CLI::App& command, InputOptions& options) {
  static const std::map<std::string, StatementFormat> formats{{"sql", StatementFormat::kSql},
                                                              {"lines", StatementFormat::kLines},
                                                              {"nul", StatementFormat::kNul}};
  static const std::map<std::string, Dialect> dialects{
      {"mysql", Dialect::kMysql}, {"ansi", Dialect::kAnsi}, {"postgres", Dialect::kPostgres}};
  command
      .add_option_function<std::string>(
          "--input", [&options](const std::string& name) { options.format = formats.at(name); },
          "How statements are separated: by semicolons (sql, the default), by newlines (lines) or "
          "by NUL bytes (nul)")
      ->check(CLI::IsMember({"sql", "lines", "nul"}))
      ->type_name("FORMAT");
  command
      .add_option_function<std::string>(
          "--dialect", [&options](const std::string& name) { options.dialect = dialects.at(name); },
          "Whose quotes and comments: mysql (the default), ansi or postgres")
      ->check(CLI::IsMember({"mysql", "ansi", "postgres"}))
      ->type_name("NAME");
  command
      .add_option("FILE", options.files, "Files of statements; standard input for \"-\" or none")
      ->type_name("");
}

}  // namespace tarn::host

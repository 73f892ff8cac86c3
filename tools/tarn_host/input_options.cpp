#include "tarn_host/input_options.h"

namespace tarn::host {

ReadOptions InputOptions::Reading() const {
  ReadOptions result = reading;
  result.max_statement = max_statement_mib << 20U;
  return result;
}

void AddInputOptions(Command& command, InputOptions& options,
                     const std::map<std::string, const Format*>& formats) {
  // 1 TiB, more than memory holds.
  constexpr std::uint64_t kMostMib = std::uint64_t{1} << 20U;
  command.Choice(
      "--input", options.reading.format, formats, "FORMAT",
      "Format of the input: statements separated by semicolons (sql), newlines (lines) or NUL "
      "bytes (nul), MySQL's slow query log (slowlog) or general log (general), or PostgreSQL's "
      "log (pglog), CSV log (csvlog) or JSON log (jsonlog); by default recognised by its first "
      "lines");
  command.Choice("--dialect", options.reading.dialect, Dialects(), "NAME",
                 "SQL dialect, for quotes, comments and separators: mysql (the default, except for "
                 "PostgreSQL's logs), ansi or postgres");
  command.Name("--prefix", options.reading.prefix, "FORMAT",
               "The log_line_prefix of a PostgreSQL log, if it is not one of the usual ones");
  command.Count("--max-statement", options.max_statement_mib, kMostMib,
                "Leave out statements of more than N MiB (default: 64)");
  command.Texts("FILE", options.files,
                "Files of statements, which gzip, bzip2, xz, zstd or lz4 may have compressed; "
                "\"-\" or no file means standard input");
}

}  // namespace tarn::host

#include "tarn_host/options.h"

#include <filesystem>
#include <system_error>

#include "plugin/plugin.h"

namespace tarn::host {
namespace {

bool Exists(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

}  // namespace

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

void AddPluginOption(Command& command, std::string& path) {
  command.Name("--plugin", path, "PATH", "Load this library instead of the one beside the tool");
}

std::string ChosenPlugin(const std::string& path) {
  if (path.empty()) return FileOfTheTool(kPluginFile);
  return path.find('/') == std::string::npos && Exists(path) ? "./" + path : path;
}

std::string FileOfTheTool(const std::string& file) {
  std::error_code error;
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return file;
  // The first two are the layout of a build folder, the last that of an installed tree, which may
  // have been moved.
  for (const char* const folder : {".", "../lib", TARN_LIBRARY_FOLDER}) {
    const auto candidate = (executable.parent_path() / folder / file).lexically_normal();
    if (Exists(candidate)) return candidate.string();
  }
  return file;
}

}  // namespace tarn::host

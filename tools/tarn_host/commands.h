// The tool's commands: their options, and the functions that run them, one file each in commands/.
// Each function returns the exit code, and throws ToolError, InputError, PluginError or
// std::bad_alloc.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "logs/reader.h"
#include "standin/password_cipher.h"
#include "tarn_host/report.h"
#include "tarn_host/table.h"

namespace tarn::host {

// The inputs of a command.
struct InputOptions {
  // Standard input alone if the command line names none.
  std::vector<std::string> files{kStandardInput};
  // Without the limit of statements, which `max_statement_mib` gives.
  ReadOptions reading;
  std::uint64_t max_statement_mib = kMaxStatement >> 20U;

  ReadOptions Reading() const {
    ReadOptions result = reading;
    result.max_statement = max_statement_mib << 20U;
    return result;
  }
};

// In the options of every command `plugin` is the library as typed, for ChosenPlugin.
struct NormalizeOptions {
  InputOptions input;
  bool pairs = false;
  std::string plugin;
};
int Normalize(const NormalizeOptions& options);

struct TraceOptions {
  // If it is absent, the statement comes from standard input.
  std::optional<std::string> statement;
  std::string plugin;
};
int Trace(const TraceOptions& options);

struct MapOptions {
  std::string status;
  std::string plugin;
};
int Map(const MapOptions& options);

// A format that only `shapes` has. Its inputs hold no statements.
inline constexpr Format kReportFormat{"report", "a report", nullptr, ""};

struct ShapesOptions {
  InputOptions input;
  TableOptions table;
  CountingRule rule;
  bool json = false;
  std::uint64_t threads = 1;
  std::string plugin;
  // As typed; empty if not given.
  std::string since;
  std::string until;
  std::array<std::string, kDetails> details;
  // The report or log to compare with; empty if not given.
  std::string compare;
};
int Shapes(const ShapesOptions& options);

struct CheckOptions {
  std::string library;
  std::uint64_t seconds = 10;
};
int Check(const CheckOptions& options);

struct ConfigOptions {
  std::string database;
  std::string plugin;
  bool show_password = false;
  bool json = false;
};
int Config(const ConfigOptions& options);

struct EncryptOptions {
  unsigned int algorithm = standin::kAes256Gcm;
  // Empty for the file that the environment names.
  std::string key_file;
};
int Encrypt(const EncryptOptions& options);

// Runs the command that `argv` names, or prints help or the version, and returns the exit code.
// Throws ToolError for bad usage, and lets the command's exceptions through.
int RunCommandLine(int argc, char** argv);

// The path to hand to the dynamic loader for the value of --plugin. An empty value means the tool's
// own plug-in. A name without a slash means the file in the current folder if it exists, and a
// library for the loader to search otherwise. Thread-safe.
std::string ChosenPlugin(const std::string& path);

// The path of a library that belongs to this tool: `file` in the executable's own folder, in ../lib
// or in the installed folder of libraries, whichever exists first. Otherwise `file` itself, which
// the dynamic loader searches for. Thread-safe.
std::string FileOfTheTool(const std::string& file);

}  // namespace tarn::host

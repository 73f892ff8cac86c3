// Options and arguments that several commands have.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "logs/reader.h"
#include "tarn_host/command_line.h"

namespace tarn::host {

// The inputs of a command as given on the command line.
struct InputOptions {
  // Standard input alone if the command line names none.
  std::vector<std::string> files{kStandardInput};
  ReadOptions reading;
  std::uint64_t max_statement_mib = kMaxStatement >> 20U;

  // `reading` with the limit that `max_statement_mib` gives.
  ReadOptions Reading() const;
};

// Adds FILE..., --input=FORMAT, --dialect=NAME, --prefix=FORMAT and --max-statement=N to `command`.
// `formats` are those to choose from. `options` must outlive the parsing.
void AddInputOptions(Command& command, InputOptions& options,
                     const std::map<std::string, const Format*>& formats = ReadableFormats());

// Adds --plugin PATH to `command`. `path` must outlive the parsing, and stays empty if the option
// is not given; ChosenPlugin takes it.
void AddPluginOption(Command& command, std::string& path);

// The path to hand to the dynamic loader for the value of --plugin. An empty value means the tool's
// own plug-in. A name without a slash means the file in the current folder if it exists, and a
// library for the loader to search otherwise.
std::string ChosenPlugin(const std::string& path);

// The path of a library that belongs to this tool: `file` in the executable's own folder, in ../lib
// or in the installed folder of libraries, whichever exists first. Otherwise `file` itself, which
// the dynamic loader searches for. Thread-safe.
std::string FileOfTheTool(const std::string& file);

}  // namespace tarn::host

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
// `formats` are those to choose from. Requires: `options` outlives the parsing.
void AddInputOptions(Command& command, InputOptions& options,
                     const std::map<std::string, const Format*>& formats = ReadableFormats());

}  // namespace tarn::host

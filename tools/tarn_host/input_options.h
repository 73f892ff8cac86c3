#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "logs/reader.h"
#include "tarn_host/command_line.h"

namespace tarn::host {

// The inputs of a command, as the command line names them.
struct InputOptions {
  // Standard input alone if the command line names none.
  std::vector<std::string> files{kStandardInput};
  ReadOptions reading;
  std::uint64_t max_statement_mib = kMaxStatement >> 20U;

  // How to read them.
  ReadOptions Reading() const;
  // What ends a text that is printed as the inputs' statements are.
  std::string_view Terminator() const noexcept;
};

// Adds FILE..., --input=FORMAT, --dialect=NAME, --prefix=FORMAT and --max-statement=N to `command`.
// `formats` are those to choose from. Requires: `options` outlives the parsing.
void AddInputOptions(Command& command, InputOptions& options,
                     const std::map<std::string, const Format*>& formats = ReadableFormats());

}  // namespace tarn::host

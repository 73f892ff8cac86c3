// Runs tarn_host as a person does.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/run_program.h"

namespace tarn::test {

inline RunResult Tool(std::vector<std::string> arguments, const RunOptions& options = {}) {
  arguments.insert(arguments.begin(), TARN_HOST_PATH);
  return RunProgram(arguments, options);
}

// A single line that begins like all of the tool's errors.
MATCHER(IsOneErrorLine, "") {
  return arg.starts_with("tarn_host: ") && arg.ends_with('\n') && arg.find('\n') == arg.size() - 1;
}

}  // namespace tarn::test

// tarn_host as a person runs it.
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

// One line that begins as all of the tool's errors do.
MATCHER(IsOneErrorLine, "") {
  return arg.starts_with("tarn_host: ") && arg.ends_with('\n') && arg.find('\n') == arg.size() - 1;
}

}  // namespace tarn::test

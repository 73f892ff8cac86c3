// Runs tarn_host as a person does.
#pragma once

#include <gmock/gmock.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "support/run_program.h"

namespace tarn::test {

inline RunResult Tool(std::vector<std::string> arguments, const RunOptions& options = {}) {
  arguments.insert(arguments.begin(), TARN_HOST_PATH);
  return RunProgram(arguments, options);
}

// A text like `pattern`, in which "..." is any text, also none.
MATCHER_P(IsLike, pattern, "is like " + testing::PrintToString(pattern)) {
  const std::string_view dots = "...";
  std::string_view text = arg;
  std::string_view rest = pattern;
  for (bool first = true;; first = false) {
    const std::size_t end = rest.find(dots);
    const std::string_view part = rest.substr(0, end);
    if (end == std::string_view::npos) return first ? text == part : text.ends_with(part);
    const std::size_t at = text.find(part);
    if (at == std::string_view::npos || (first && at != 0)) return false;
    text.remove_prefix(at + part.size());
    rest.remove_prefix(end + dots.size());
  }
}

// A single line that begins like all of the tool's errors.
MATCHER(IsOneErrorLine, "") {
  return arg.starts_with("tarn_host: ") && arg.ends_with('\n') && arg.find('\n') == arg.size() - 1;
}

}  // namespace tarn::test

#include "tarn_host/errors.h"

#include <cstdio>
#include <string>

namespace tarn::host {

void ReportError(std::string_view message) {
  const std::string line = "tarn_host: " + OneLine(message) + '\n';
  // There is no one left to tell if standard error can't be written.
  static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
}

}  // namespace tarn::host

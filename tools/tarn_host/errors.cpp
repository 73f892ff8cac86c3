#include "tarn_host/errors.h"

#include <cstdio>
#include <string>

namespace tarn::host {

void ReportError(std::string_view message) {
  const std::string line = "tarn_host: " + OneLine(message) + '\n';
  // If standard error can't be written, the message is lost.
  static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
}

}  // namespace tarn::host

#include "logs/log_splitter.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace tarn::host {

const LogKind* RecognizedLog(std::string_view head) {
  static constexpr LogKind kSlow{"a slow query log", "slowlog"};
  static constexpr LogKind kGeneral{"a general query log", "general"};
  static constexpr LogKind kCsv{"a PostgreSQL CSV log", "csvlog"};
  // A banner and a cut line may come before.
  constexpr int kLines = 6;
  for (int line_number = 0; line_number < kLines && !head.empty(); ++line_number) {
    const std::size_t end = std::min(head.find('\n'), head.size());
    const std::string_view line = head.substr(0, end);
    head.remove_prefix(std::min(end + 1, head.size()));
    if (BeginsSlowLogEntry(line)) return &kSlow;
    if (BeginsGeneralLogEntry(line)) return &kGeneral;
    if (BeginsCsvLogRecord(line)) return &kCsv;
  }
  return nullptr;
}

}  // namespace tarn::host

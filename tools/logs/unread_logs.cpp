#include "logs/unread_logs.h"

#include <algorithm>
#include <string_view>

#include "logs/log_time.h"
#include "sql/text.h"

namespace tarn::host {

bool BeginsMariaDbAuditEntry(std::string_view line) {
  // 20261124 09:05:00,web1,shop,10.0.0.1,8,123,QUERY,shop,'select 1',0
  constexpr std::ptrdiff_t kFewestCommas = 8;
  return BeginsLike(line, "99999999 99:99:99,") &&
         std::count(line.begin(), line.end(), ',') >= kFewestCommas;
}

bool BeginsMySqlAuditEntry(std::string_view line) noexcept {
  line = Trimmed(line);
  return line.starts_with("<AUDIT_RECORD") || line.starts_with("<AUDIT>") ||
         line.starts_with("{\"audit_record\":") ||
         (line.find('{') < 2 && line.find("\"timestamp\":") < 8 &&
          line.find("\"class\":") != std::string_view::npos);
}

bool BeginsBinaryLog(std::string_view line) noexcept { return line.starts_with("\xFE\x62in"); }

bool BeginsContainerLine(std::string_view line) {
  if (line.starts_with("{\"log\":\"")) return true;
  // 2026-11-24T09:05:00.123456789Z stdout F # Time: ...
  const bool finer_than_servers = BeginsLike(line, "9999-99-99T99:99:99.9999999");
  return TakeLogTime(line) && (line.starts_with(" stdout ") || line.starts_with(" stderr ") ||
                               (finer_than_servers && line.starts_with(' ')));
}

}  // namespace tarn::host

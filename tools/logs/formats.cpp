#include "logs/formats.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "logs/log_time.h"
#include "logs/scan.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

// MariaDB's server_audit.log:
// 20261124 09:05:00,web1,shop,10.0.0.1,8,123,QUERY,shop,'select 1',0
bool BeginsMariaDbAuditEntry(std::string_view line) {
  constexpr std::ptrdiff_t kFewestCommas = 8;
  return BeginsLike(line, "99999999 99:99:99,") &&
         std::count(line.begin(), line.end(), ',') >= kFewestCommas;
}

// MySQL's audit log in XML or in JSON.
bool BeginsMySqlAuditEntry(std::string_view line) {
  line = Trimmed(line);
  return line.starts_with("<AUDIT_RECORD") || line.starts_with("<AUDIT>") ||
         line.starts_with("{\"audit_record\":") ||
         (line.find("\"timestamp\":") < 8 && line.find("\"class\":") != std::string_view::npos);
}

bool BeginsBinaryLog(std::string_view line) { return line.starts_with("\xFE\x62in"); }

// A line to which a container's runtime has added the time and the stream, or which it has wrapped
// in JSON:
// 2026-11-24T09:05:00.123456789Z stdout F # Time: ...
// {"log":"# Time: ...
bool BeginsContainerLine(std::string_view line) {
  if (line.starts_with("{\"log\":\"")) return true;
  const bool finer_than_servers = BeginsLike(line, "9999-99-99T99:99:99.9999999");
  return TakeLogTime(line) &&
         (finer_than_servers || line.starts_with(" stdout ") || line.starts_with(" stderr "));
}

// A line of a JSON log that Google Cloud has exported.
bool BeginsCloudEntry(std::string_view line) {
  return Trimmed(line).find_first_of("{\"") == 0 &&
         line.find("\"textPayload\":") != std::string_view::npos;
}

// The first member of a report of `tarn_host shapes --json`. It is in the first or the second line.
bool BeginsReportMember(std::string_view line) {
  line = Trimmed(line);
  if (line.starts_with('{')) line = Trimmed(line.substr(1));
  return line.starts_with("\"tarn_host_report\":");
}

// Whether the lines before a line that begins an entry of `format` are SQL, and that line is within
// a quote or a comment of it, as a text that somebody has stored. A log may begin within a quote
// itself: a slow log has a ";" before its next entry, and a CSV log is never taken for SQL.
bool IsWithinSql(std::string_view before, const Format& format) {
  constexpr std::array<std::string_view, 20> kBegins{
      "--",   "/*",  "#",     "select", "insert", "update", "delete", "replace", "create", "alter",
      "drop", "set", "begin", "start",  "call",   "with",   "copy",   "use",     "lock",   "grant"};
  before = Trimmed(before);
  if (before.ends_with(';') || format.name == "csvlog" ||
      std::none_of(kBegins.begin(), kBegins.end(), [before](std::string_view begin) {
        return EqualIgnoringCase(before.substr(0, begin.size()), begin);
      })) {
    return false;
  }
  Found found;
  MakeSqlSplitter({.dialect = format.dialect})->Split(before, true, found);
  return !found.summary.problem.empty();
}

constexpr std::string_view kPostgresAdvice =
    "set log_min_duration_statement or log_statement = 'all'";
constexpr std::string_view kAuditAdvice = "the slow query log and the general query log are read";

// If a line begins an entry of several logs, the first row of them decides.
constexpr std::array kFormats{
    Format{"sql", "SQL", nullptr, "", MakeSqlSplitter},
    Format{"lines", "lines", nullptr, "", MakeLinesSplitter, Dialect::kMysql, "\n"},
    Format{"nul", "texts ended by NUL bytes", nullptr, "", MakeNulSplitter, Dialect::kMysql,
           std::string_view("\0", 1)},
    Format{"slowlog", "a slow query log", BeginsSlowLogEntry,
           "set slow_query_log = ON and a lower long_query_time", MakeSlowLogSplitter},
    Format{"", "a log with a container's timestamps", BeginsContainerLine, "strip them to read it"},
    Format{"csvlog", "a PostgreSQL CSV log", BeginsCsvLogRecord, kPostgresAdvice,
           MakeCsvLogSplitter, Dialect::kPostgres},
    Format{"jsonlog", "a PostgreSQL JSON log", BeginsJsonLogRecord, kPostgresAdvice,
           MakeJsonLogSplitter, Dialect::kPostgres},
    Format{"general", "a general query log", BeginsGeneralLogEntry, "set general_log = ON",
           MakeGeneralLogSplitter},
    Format{"", "a JSON log of Google Cloud", BeginsCloudEntry, "jq -r .textPayload extracts it"},
    Format{"pglog", "a PostgreSQL log", BeginsPostgresLogEntry, kPostgresAdvice,
           MakePostgresLogSplitter, Dialect::kPostgres},
    Format{"", "a MariaDB audit log", BeginsMariaDbAuditEntry, kAuditAdvice},
    Format{"", "a MySQL audit log", BeginsMySqlAuditEntry, kAuditAdvice},
    Format{"", "a binary log", BeginsBinaryLog, "mysqlbinlog prints its statements"},
    // A report in a file of its own is found before it is read as a log.
    Format{"", "a JSON report", BeginsReportMember, "tarn_host shapes --input=report reads it"},
};

}  // namespace

const std::map<std::string, const Format*>& ReadableFormats() {
  static const std::map<std::string, const Format*> kByName = [] {
    std::map<std::string, const Format*> formats;
    for (const Format& format : kFormats) {
      if (format.make_splitter != nullptr) formats.emplace(format.name, &format);
    }
    return formats;
  }();
  return kByName;
}

const Format* RecognizedFormat(std::string_view head) {
  // Each line within SQL costs a look at all lines before it.
  constexpr int kMostWithinSql = 16;
  int within_sql = 0;
  const std::string_view all = head;
  while (!head.empty()) {
    head.remove_prefix(std::min(head.find_first_not_of('\0'), head.size()));
    const std::size_t end = std::min(head.find('\n'), head.size());
    const std::string_view line = head.substr(0, end);
    for (const Format& format : kFormats) {
      if (!format.IsLog() || !format.begins_entry(line)) continue;
      if (!IsWithinSql(all.substr(0, all.size() - head.size()), format)) return &format;
      if (++within_sql == kMostWithinSql) return nullptr;
      break;
    }
    head.remove_prefix(std::min(end + 1, head.size()));
  }
  return nullptr;
}

bool MayBecomeALog(std::string_view head) noexcept {
  constexpr std::string_view kBegins = "#{<\t\xFE";
  return head.find('\n') == std::string_view::npos &&
         (head.empty() || IsDigit(head[0]) || kBegins.find(head[0]) != std::string_view::npos);
}

}  // namespace tarn::host

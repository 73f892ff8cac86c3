#pragma once

#include <memory>
#include <string_view>

#include "logs/splitter.h"

namespace tarn::host {

// Splitters for the logs that servers write. Lines that belong to no entry are passed over; a log
// that holds no entry at all is a problem. Headers that a statement's own text forges are believed.

// The slow query log of MySQL and MariaDB. Each statement has the measures of the header before it;
// when several follow one header, the first of them has. "use" and "SET timestamp" and the like at
// the start of an entry are the server's. "# administrator command: Ping;" is a statement
// "administrator command: Ping".
std::unique_ptr<Splitter> MakeSlowLogSplitter();

// The general query log of MySQL and MariaDB: what the commands Query and Execute name. Prepare is
// left out, since its Execute lines follow, and so are all other commands.
std::unique_ptr<Splitter> MakeGeneralLogSplitter();

// The CSV log of PostgreSQL: messages "statement: ", "execute NAME: " and "duration: N ms" with one
// of these behind it. A message that has a duration alone goes to the statement of its session that
// has none yet.
std::unique_ptr<Splitter> MakeCsvLogSplitter();

// Whether `line` is one with which an entry of that log begins.
bool BeginsSlowLogEntry(std::string_view line) noexcept;
bool BeginsGeneralLogEntry(std::string_view line);
bool BeginsCsvLogRecord(std::string_view line) noexcept;

// A log that text is recognised as by its first lines: what it is called, and the name of its
// StatementFormat.
struct LogKind {
  const char* name;
  const char* format;
};

// Null when `head`, the first lines of a text, are no log's.
const LogKind* RecognizedLog(std::string_view head);

}  // namespace tarn::host

// The splitters, one for each format of input, and the functions that recognise the first line of
// a log. All of them may be called by any thread.
#pragma once

#include <memory>
#include <string_view>

#include "logs/splitter.h"

namespace tarn::host {

// Statements of SQL. A semicolon ends a statement, and so does a line such as "GO" if the dialect
// has it (see Dialect). Blanks around a statement and comments before it are dropped, comments
// within it stay: "/* a */ select /* b */ 1;" -> "select /* b */ 1". A text of comments and blanks
// alone is no statement. The last statement needs no semicolon.
std::unique_ptr<Splitter> MakeSqlSplitter(const SplitterOptions& options);

// Statements that the byte `separator` ends; the last statement needs none.
std::unique_ptr<Splitter> MakeSeparatorSplitter(char separator, const SplitterOptions& options);

// The slow query log of MySQL and MariaDB. A header line counts only after a statement that ended
// with ";", so that no text within a statement begins an entry.
//
// Each statement gets the values of the header before it; if several statements follow one header,
// the first gets them. The server itself writes lines such as "use shop;" and "SET timestamp=5;" at
// the start of an entry; a "use" that nothing follows is the statement. The line
// "# administrator command: Ping;" is a statement "administrator command: Ping".
std::unique_ptr<Splitter> MakeSlowLogSplitter(const SplitterOptions& options);
bool BeginsSlowLogEntry(std::string_view line);

// The general query log of MySQL and MariaDB: the arguments of the commands Query and Execute.
// Prepare is left out, since an Execute line follows it for each execution, and so are all other
// commands. Servers up to MySQL 5.0 pad a command with blanks; later ones end it with a tab.
std::unique_ptr<Splitter> MakeGeneralLogSplitter(const SplitterOptions& options);
bool BeginsGeneralLogEntry(std::string_view line);

// The three logs of PostgreSQL. PostgresMessages finds the statements in their messages.
//
// The CSV log. After a damaged record the splitter goes on at the next line that cannot be a part
// of a text within a record.
std::unique_ptr<Splitter> MakeCsvLogSplitter(const SplitterOptions& options);
bool BeginsCsvLogRecord(std::string_view line);

// The JSON log of PostgreSQL 15 and later, one object a line.
std::unique_ptr<Splitter> MakeJsonLogSplitter(const SplitterOptions& options);
bool BeginsJsonLogRecord(std::string_view line) noexcept;

// The log that PostgreSQL writes to standard error, to syslog or through a cloud's service. A line
// is a prefix (SplitterOptions::prefix), a severity such as "LOG:  " and text; lines that begin
// with a tab continue it. BeginsPostgresLogEntry knows the usual prefixes.
std::unique_ptr<Splitter> MakePostgresLogSplitter(const SplitterOptions& options);
bool BeginsPostgresLogEntry(std::string_view line);

// Whether `line` is one of those that MySQL and MariaDB print into each log when they start, for
// example "Time                 Id Command    Argument".
bool IsServerBanner(std::string_view line) noexcept;

}  // namespace tarn::host

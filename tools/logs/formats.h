// The formats of input, and the splitters that find statements in them. Any thread may call the
// functions.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "logs/source.h"
#include "sql/dialect.h"

namespace tarn::host {

// The options of all splitters. A splitter ignores those that do not concern it.
struct SplitterOptions {
  Dialect dialect = Dialect::kMysql;
  // PostgreSQL's log_line_prefix. If it is empty, the usual prefixes are tried.
  std::string prefix = {};
};

// Finds statements in a text that arrives piece by piece. Not thread-safe.
class Splitter {
 public:
  Splitter() = default;
  Splitter(const Splitter&) = delete;
  Splitter& operator=(const Splitter&) = delete;
  virtual ~Splitter() = default;

  // Adds the statements that end within `text` to `found`. Returns the number of bytes at the start
  // of `text` that are no longer needed. The next call gets the other bytes again, followed by new
  // ones: Split("a;b") adds "a" and returns 2, so that the next text begins with "b". If `last`, no
  // bytes come after `text`.
  virtual std::size_t Split(std::string_view text, bool last, Found& found) = 0;
};

// A form of input in which statements are written, for example a slow query log. Some logs are
// recognised without being read, so that a person learns the reason why nothing is counted.
struct Format {
  // The name by which a person chooses the format, "slowlog"; empty if the log is not read.
  std::string_view name;
  // The name in messages: "a slow query log".
  std::string_view title;
  // Whether `line`, without its newline, begins an entry; null if the format is no log.
  bool (*begins_entry)(std::string_view line);
  // The advice in a message about a log from which no statement came: "set general_log = ON", or,
  // if the log is not read, another log that is.
  std::string_view advice;
  // Null if the log is not read.
  std::unique_ptr<Splitter> (*make_splitter)(const SplitterOptions& options) = nullptr;
  // The dialect of the server that writes such a log.
  Dialect dialect = Dialect::kMysql;
  // The bytes that end each statement if statements are printed in this format: ";\n".
  std::string_view terminator = ";\n";

  bool IsLog() const noexcept { return begins_entry != nullptr; }
};

// The formats that are read, by their names.
const std::map<std::string, const Format*>& ReadableFormats();

// The log whose first lines are in `head`: the first line that begins an entry of any log decides.
// Null if no line begins one. If `head` begins as SQL does, lines within a quote or a comment are
// passed over. The last line counts even if its end is missing.
const Format* RecognizedFormat(std::string_view head);

// Whether `head` is too short to decide, although it may be the start of a log's entry: "# Ti" may
// become "# Time: ".
bool MayBecomeALog(std::string_view head) noexcept;

// Statements of SQL. A semicolon ends a statement, and so does a line such as "GO" if the dialect
// has it (see Dialect). Blanks around a statement and comments before it are dropped, comments
// within it stay: "/* a */ select /* b */ 1;" -> "select /* b */ 1". A text of comments and blanks
// alone is no statement. The last statement needs no semicolon.
std::unique_ptr<Splitter> MakeSqlSplitter(const SplitterOptions& options);

// Statements that a newline ends, or a NUL byte; the last statement needs none.
std::unique_ptr<Splitter> MakeLinesSplitter(const SplitterOptions& options);
std::unique_ptr<Splitter> MakeNulSplitter(const SplitterOptions& options);

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

// Whether `line` is one of those that MySQL and MariaDB print into both logs when they start, for
// example "Time                 Id Command    Argument".
bool IsServerBanner(std::string_view line) noexcept;

// The three logs of PostgreSQL. PostgresMessages finds the statements in their messages.
//
// The CSV log. After a damaged record the splitter goes on at the next line that cannot be a part
// of a text within a record.
std::unique_ptr<Splitter> MakeCsvLogSplitter(const SplitterOptions& options);
bool BeginsCsvLogRecord(std::string_view line);

// The JSON log of PostgreSQL 15 and later, one object a line.
std::unique_ptr<Splitter> MakeJsonLogSplitter(const SplitterOptions& options);
bool BeginsJsonLogRecord(std::string_view line);

// The log that PostgreSQL writes to standard error, to syslog or through a cloud's service. A line
// is a prefix (SplitterOptions::prefix), a severity such as "LOG:  " and text; lines that begin
// with a tab continue it. BeginsPostgresLogEntry knows the usual prefixes, those with a
// time or a process in brackets, and the empty one.
std::unique_ptr<Splitter> MakePostgresLogSplitter(const SplitterOptions& options);
bool BeginsPostgresLogEntry(std::string_view line);

}  // namespace tarn::host

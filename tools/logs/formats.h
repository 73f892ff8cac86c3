#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "logs/splitter.h"
#include "sql/dialect.h"

namespace tarn::host {

// A form of input in which statements are written, for example a slow query log. Some logs are
// recognised without being read, so that a person learns the reason why nothing is counted.
struct Format {
  // The name by which a person chooses the format, "slowlog"; empty if the log is not read.
  std::string_view name;
  // The name in messages: "a slow query log".
  std::string_view title;
  // The dialect of the server that writes such a log.
  Dialect dialect;
  // Whether `line`, without its end of line, begins an entry; null if the format is no log.
  bool (*begins_entry)(std::string_view line);
  // Null if the log is not read.
  std::unique_ptr<Splitter> (*make_splitter)(const SplitterOptions& options);
  // The advice in a message about a log from which no statement came: "set general_log = ON", or,
  // if the log is not read, another log that is.
  std::string_view advice;
  // The bytes that end each statement if statements are printed in this format: ";\n".
  std::string_view terminator;

  bool IsLog() const noexcept { return begins_entry != nullptr; }
};

// The formats that are read, by their names. Any thread may call it.
const std::map<std::string, const Format*>& ReadableFormats();

// The log whose first lines are in `head`: the first line that begins an entry of any log decides.
// Null if no line begins one. The last line counts even if its end is missing. Any thread may call
// it.
const Format* RecognizedFormat(std::string_view head);

// Whether `head` is too short to decide, although it may be the start of a log's entry: "# Ti" may
// become "# Time: ". Any thread may call it.
bool MayBecomeALog(std::string_view head) noexcept;

}  // namespace tarn::host

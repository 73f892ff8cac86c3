#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "logs/splitter.h"
#include "sql/dialect.h"

namespace tarn::host {

// How statements lie in an input. A kind of log that is recognised and not read is one as well.
struct Format {
  // As a person gives it; empty for a kind that is not read.
  std::string_view name;
  // As messages name it: "a slow query log".
  std::string_view title;
  // That of the server that writes such a log.
  Dialect dialect;
  // Whether `line`, without its end, begins an entry; null for a format that is no log.
  bool (*begins_entry)(std::string_view line);
  // Null for a kind that is not read.
  std::unique_ptr<Splitter> (*make_splitter)(const SplitterOptions& options);
  // The setting that a log with entries and no statement may lack; for a kind that is not read,
  // something that is.
  std::string_view advice;
  // What ends a statement where texts are printed in this format.
  std::string_view terminator;

  bool IsLog() const noexcept { return begins_entry != nullptr; }
};

// The formats that are read, by their names.
const std::map<std::string, const Format*>& ReadableFormats();

// The log that `head`, the first lines of an input, belongs to: the first line that begins an entry
// of one tells. Null when none does. A last line without its end counts as well.
const Format* RecognizedFormat(std::string_view head);

// Whether `head` is too short to tell, although it may begin an entry of a log.
bool MayBecomeALog(std::string_view head) noexcept;

}  // namespace tarn::host

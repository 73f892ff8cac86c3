#pragma once

#include <memory>
#include <string_view>

#include "logs/splitter.h"

namespace tarn::host {

// The slow query log of MySQL and MariaDB. A header line counts only after a statement that ended
// with ";", so that no text within a statement begins an entry.
//
// Each statement has what the header before it tells; when several follow one header, the first of
// them has. "use" and "SET timestamp" and the like at the start of an entry are the server's; a
// "use" that nothing follows is the statement. "# administrator command: Ping;" is a statement
// "administrator command: Ping".
std::unique_ptr<Splitter> MakeSlowLogSplitter(const SplitterOptions& options);

// Whether `line` begins an entry of such a log.
bool BeginsSlowLogEntry(std::string_view line);

// Whether `line` is one of those that MySQL and MariaDB print into each log when they start.
bool IsServerBanner(std::string_view line) noexcept;

}  // namespace tarn::host

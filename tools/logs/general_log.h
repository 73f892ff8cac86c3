#pragma once

#include <memory>
#include <string_view>

#include "logs/splitter.h"

namespace tarn::host {

// The general query log of MySQL and MariaDB: the arguments of the commands Query and Execute.
// Prepare is left out, since its Execute lines follow, and so are all other commands. Servers up to
// MySQL 5.0 pad a command with blanks; later ones end it by a tab.
std::unique_ptr<Splitter> MakeGeneralLogSplitter(const SplitterOptions& options);

// Whether `line` begins an entry of such a log.
bool BeginsGeneralLogEntry(std::string_view line);

}  // namespace tarn::host

#pragma once

#include <memory>
#include <string_view>

#include "logs/splitter.h"

namespace tarn::host {

// The log that PostgreSQL writes to standard error, to syslog or through a cloud's service, whose
// messages PostgresMessages reads. A line is a prefix (SplitterOptions::prefix), a severity such as
// "LOG:  " and text; lines that begin with a tab continue it.
std::unique_ptr<Splitter> MakePostgresLogSplitter(const SplitterOptions& options);

// Whether `line` begins a message of such a log, in one of the usual prefixes.
bool BeginsPostgresLogEntry(std::string_view line);

}  // namespace tarn::host

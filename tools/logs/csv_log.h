#pragma once

#include <memory>
#include <string_view>

#include "logs/splitter.h"

namespace tarn::host {

// The CSV log of PostgreSQL, whose messages PostgresMessages reads. After a damaged record it goes
// on at the next line that no text within a record can be.
std::unique_ptr<Splitter> MakeCsvLogSplitter(const SplitterOptions& options);

// Whether `line` begins a record of such a log.
bool BeginsCsvLogRecord(std::string_view line);

}  // namespace tarn::host

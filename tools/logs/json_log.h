#pragma once

#include <memory>
#include <string_view>

#include "logs/splitter.h"

namespace tarn::host {

// The JSON log of PostgreSQL from version 15 on, one object a line, whose messages PostgresMessages
// reads.
std::unique_ptr<Splitter> MakeJsonLogSplitter(const SplitterOptions& options);

// Whether `line` is such an object, or begins like one.
bool BeginsJsonLogRecord(std::string_view line) noexcept;

}  // namespace tarn::host

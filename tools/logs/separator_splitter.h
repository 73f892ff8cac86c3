#pragma once

#include <memory>

#include "logs/splitter.h"

namespace tarn::host {

// Statements each ended by the byte `separator`; the last needs none.
std::unique_ptr<Splitter> MakeSeparatorSplitter(char separator, const SplitterOptions& options);

}  // namespace tarn::host

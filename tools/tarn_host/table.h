#pragma once

#include "shapes/comparison.h"
#include "shapes/counter.h"
#include "shapes/ranking.h"
#include "tarn_host/output.h"

namespace tarn::host {

struct TableOptions {
  RankOptions rank;
  // Print below each shape its slowest statement and what the logs tell of it.
  bool examples = false;
};

// Prints tables that fit a terminal: columns of facts that no log tells are left out, and on a
// terminal the last ones for which there is no room. Throws as Output::Write does.
void PrintTable(const ShapeCount& count, const TableOptions& options, Output& output);
void PrintTable(const Comparison& comparison, Output& output);

}  // namespace tarn::host

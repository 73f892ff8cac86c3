#pragma once

#include "shapes/comparison.h"
#include "shapes/counter.h"
#include "shapes/ranking.h"
#include "tarn_host/output.h"

namespace tarn::host {

struct TableOptions {
  RankOptions rank;
  // Print below each shape its slowest statement and the facts that the logs record of it.
  bool examples = false;
};

// Print a table. Columns of facts that no log records are left out. On a terminal so are the last
// columns if the table is too wide. Throw as Output::Write does.
void PrintTable(const ShapeCount& count, const TableOptions& options, Output& output);
void PrintTable(const Comparison& comparison, Output& output);

}  // namespace tarn::host

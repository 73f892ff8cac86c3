#pragma once

#include <memory>

#include "logs/splitter.h"
#include "sql/dialect.h"

namespace tarn::host {

// Statements of SQL ended by semicolons and by what the dialect has besides. Blanks around a
// statement and comments before it are dropped, comments within it stay; a statement that has
// nothing else is none. The last statement needs no separator.
std::unique_ptr<Splitter> MakeSqlSplitter(Dialect dialect);
std::unique_ptr<Splitter> MakeSqlSplitter(const SplitterOptions& options);

}  // namespace tarn::host

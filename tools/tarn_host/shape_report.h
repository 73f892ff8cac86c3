#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "impl_dao/product_interface.h"
#include "shapes/shape_counter.h"
#include "tarn_host/output.h"

namespace tarn::host {

// What comes first: the most frequent shape, the one that took the most time, or the one with the
// slowest statement; among equals the more frequent, then the one seen first.
enum class ShapeOrder { kCount, kTime, kMax };

struct ReportOptions {
  // By default kTime when the input tells times, otherwise kCount.
  std::optional<ShapeOrder> order;
  // Shapes beyond these many, or of fewer statements, are summed up.
  std::size_t top = std::numeric_limits<std::size_t>::max();
  std::uint64_t min_count = 1;
  bool examples = false;
};

// The short name of a shape: the first eight hexadecimal digits of the SHA-256 of its text. Throws
// ToolError when the cryptographic library fails.
std::string ShapeId(std::string_view shape);

// Prints a table that fits a terminal. Throws as Output::Write does.
void PrintTable(const ShapeCount& count, const ReportOptions& options, Output& output);

// Prints JSON, shape by shape. `product` makes the canonical texts of the examples.
void PrintJson(const ShapeCount& count, const ReportOptions& options,
               impl_dao::CProductInterface& product, Output& output);

}  // namespace tarn::host

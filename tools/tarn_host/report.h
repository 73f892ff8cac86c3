// Reports as JSON. The reports of several logs add up to the report of all these logs, to the byte.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "impl_dao/product_interface.h"
#include "shapes/comparison.h"
#include "shapes/counter.h"
#include "shapes/ranking.h"
#include "tarn_host/output.h"

namespace tarn::host {

// How statements were counted. Reports add up only if their rules are the same.
struct CountingRule {
  bool exact = false;
  bool fold_digits = false;
  bool keys = false;
  std::optional<Detail> group_by = {};

  bool operator==(const CountingRule&) const = default;
};

// Write JSON, shape by shape. `product` makes the canonical texts of the examples. Throw as
// Output::Write does.
void WriteReport(const ShapeCount& count, const RankOptions& options, const CountingRule& rule,
                 impl_dao::CProductInterface& product, Output& output);
void WriteComparison(const Comparison& comparison, Output& output);

// Whether `head`, the first bytes of a text, are those of a report.
bool BeginsReport(std::string_view head) noexcept;

// Reads a report from its text. Throws InputError, which calls the report `name`, if it is damaged,
// was written without some of its shapes, or was counted by another rule.
ShapeCount ReadReport(const std::string& name, std::string_view text, const CountingRule& rule);

}  // namespace tarn::host

// Reports as JSON. They hold everything that a report of several logs needs: the reports of the
// logs add up to it, byte by byte.
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

// How statements were counted. Reports add up only if they agree in all of it.
struct CountingRule {
  bool exact = false;
  bool fold_digits = false;
  bool keys = false;
  std::optional<Detail> group_by = {};

  bool operator==(const CountingRule&) const = default;
};

// Prints the report, shape by shape. `product` makes the canonical texts of the examples. Throws as
// Output::Write does.
void WriteReport(const ShapeCount& count, const RankOptions& options, const CountingRule& rule,
                 impl_dao::CProductInterface& product, Output& output);
void WriteComparison(const Comparison& comparison, Output& output);

// Whether `head`, the first bytes of a text, are those of a report.
bool BeginsReport(std::string_view head) noexcept;

// Reads a report from its text. `name` is what errors call it. Throws InputError if it is damaged,
// lacks shapes, or was counted by another rule.
ShapeCount ReadReport(const std::string& name, std::string_view text, const CountingRule& rule);

}  // namespace tarn::host

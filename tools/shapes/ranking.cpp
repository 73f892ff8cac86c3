#include "shapes/ranking.h"

#include <algorithm>
#include <tuple>

namespace tarn::host {
namespace {

std::uint64_t MeasureOf(const Counters& shape, ShapeOrder order) noexcept {
  switch (order) {
    case ShapeOrder::kTime:
      return shape.times.total;
    case ShapeOrder::kMax:
      return shape.times.max;
    case ShapeOrder::kRows:
      return shape.rows_examined.value_or(shape.rows_sent.value_or(0));
    case ShapeOrder::kCount:
      break;
  }
  return shape.count;
}

}  // namespace

double Ranking::ShareOf(const Counters& shape) const noexcept {
  const ShapeOrder by =
      order == ShapeOrder::kTime && all.times.total > 0 ? ShapeOrder::kTime : ShapeOrder::kCount;
  const std::uint64_t whole = MeasureOf(all, by);
  if (whole == 0) return 0;
  return static_cast<double>(MeasureOf(shape, by)) / static_cast<double>(whole);
}

Ranking Rank(const ShapeCount& count, const RankOptions& options) {
  Ranking ranking;
  for (const ShapeEntry& entry : count.shapes) {
    ranking.all += entry.second;
    ranking.shown.push_back(&entry);
  }
  ranking.order =
      options.order.value_or(ranking.all.times.Known() ? ShapeOrder::kTime : ShapeOrder::kCount);
  const auto too_rare = [&options](const ShapeEntry* entry) {
    return entry->second.count < options.min_count;
  };
  const auto rank_of = [&](const ShapeEntry* entry) {
    const Counters& shape = entry->second;
    return std::tuple<bool, std::uint64_t, std::uint64_t, const ShapeKey&>(
        too_rare(entry), ~MeasureOf(shape, ranking.order), ~shape.count, entry->first);
  };
  const std::size_t most = std::min(options.top, ranking.shown.size());
  const auto end = ranking.shown.begin() + static_cast<std::ptrdiff_t>(most);
  std::partial_sort(
      ranking.shown.begin(), end, ranking.shown.end(),
      [&rank_of](const ShapeEntry* a, const ShapeEntry* b) { return rank_of(a) < rank_of(b); });
  const auto kept = std::find_if(ranking.shown.begin(), end, too_rare);
  for (auto other = kept; other != ranking.shown.end(); ++other) {
    ++ranking.other_shapes;
    ranking.others += (*other)->second;
  }
  ranking.shown.erase(kept, ranking.shown.end());
  return ranking;
}

}  // namespace tarn::host

#include "shapes/comparison.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>

namespace tarn::host {
namespace {

std::uint64_t CostOf(const Counters& counters, bool timed) noexcept {
  return timed ? counters.times.total : counters.count;
}

Change ChangeOf(const ShapeChange& shape, bool timed) noexcept {
  // A shape with neither statements nor times is missing in that count.
  const auto missing = [](const Counters& one) { return one.count == 0 && !one.times.Known(); };
  if (missing(shape.before)) return Change::kNew;
  if (missing(shape.after)) return Change::kGone;
  const auto before = static_cast<double>(timed ? shape.before.times.Mean() : shape.before.count);
  const auto after = static_cast<double>(timed ? shape.after.times.Mean() : shape.after.count);
  if (after > before && after >= before * kNotableRatio) {
    return timed ? Change::kSlower : Change::kMore;
  }
  if (after < before && before >= after * kNotableRatio) {
    return timed ? Change::kFaster : Change::kFewer;
  }
  return Change::kSame;
}

}  // namespace

const char* NameOf(Change change) noexcept {
  constexpr std::array kNames = {"new", "gone", "slower", "faster", "more", "fewer", "same"};
  return kNames.at(static_cast<std::size_t>(change));
}

Comparison Compare(const ShapeCount& before, const ShapeCount& after, std::size_t top) {
  Comparison comparison;
  std::map<ShapeKey, ShapeChange> shapes;
  const auto add = [&](const ShapeCount& count, Counters& all, Counters ShapeChange::*part) {
    for (const auto& [key, shape] : count.shapes) {
      all += shape;
      shapes[key].key = &key;
      shapes[key].*part += shape;
    }
  };
  add(before, comparison.before, &ShapeChange::before);
  add(after, comparison.after, &ShapeChange::after);
  const bool timed = comparison.Timed();
  for (auto& [key, shape] : shapes) {
    shape.change = ChangeOf(shape, timed);
    comparison.changes.push_back(shape);
  }
  // Sums are at most kMostSum, so differences do not overflow.
  const auto growth = [timed](const ShapeChange& shape) {
    return static_cast<std::int64_t>(CostOf(shape.after, timed)) -
           static_cast<std::int64_t>(CostOf(shape.before, timed));
  };
  std::stable_sort(
      comparison.changes.begin(), comparison.changes.end(),
      [&growth](const ShapeChange& a, const ShapeChange& b) { return growth(a) > growth(b); });
  comparison.shape_count = comparison.changes.size();
  comparison.changes.resize(std::min(top, comparison.shape_count));
  return comparison;
}

}  // namespace tarn::host

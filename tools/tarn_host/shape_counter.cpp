#include "tarn_host/shape_counter.h"

#include <cstddef>
#include <cstdint>
#include <future>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "tarn_host/normalize_call.h"

namespace tarn::host {
namespace {

void CountStatement(std::string_view statement, std::uint64_t position,
                    impl_dao::CProductInterface& product, std::string& sql, ShapeCount& count) {
  sql = statement;
  if (auto reason = CallNormalize(product, sql)) {
    ++count.failed;
    if (!count.first_failure) count.first_failure = {position, *std::move(reason)};
    return;
  }
  ++count.counted;
  Shape& shape = count.shapes[sql];
  if (++shape.count == 1) {
    shape.first = position;
    shape.example = statement;
  }
}

ShapeCount CountOnThisThread(const BatchSource& source, impl_dao::CProductInterface& product) {
  ShapeCount count;
  StatementBatch batch;
  std::string sql;
  for (std::uint64_t position = 0; source(batch, position);) {
    for (std::size_t index = 0; index < batch.Size(); ++index) {
      CountStatement(batch[index], position + index, product, sql, count);
    }
  }
  return count;
}

void Merge(ShapeCount& total, ShapeCount part) {
  total.counted += part.counted;
  total.failed += part.failed;
  if (part.first_failure &&
      (!total.first_failure || part.first_failure->position < total.first_failure->position)) {
    total.first_failure = std::move(part.first_failure);
  }
  while (!part.shapes.empty()) {
    auto node = part.shapes.extract(part.shapes.begin());
    Shape& shape = node.mapped();
    Shape& known = total.shapes[node.key()];
    if (known.count == 0 || shape.first < known.first) {
      known.first = shape.first;
      known.example = std::move(shape.example);
    }
    known.count += shape.count;
  }
}

}  // namespace

ShapeCount CountShapes(const BatchSource& source, impl_dao::CProductInterface& product,
                       unsigned threads) {
  std::vector<std::future<ShapeCount>> counts;
  for (unsigned thread = 0; thread < threads; ++thread) {
    try {
      counts.push_back(
          std::async(std::launch::async, CountOnThisThread, std::cref(source), std::ref(product)));
    } catch (const std::system_error&) {
      // Fewer threads count as well.
      if (counts.empty()) throw;
      break;
    }
  }
  ShapeCount total = counts.front().get();
  for (std::size_t index = 1; index < counts.size(); ++index) Merge(total, counts[index].get());
  return total;
}

}  // namespace tarn::host

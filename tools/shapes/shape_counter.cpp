#include "shapes/shape_counter.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <future>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "plugin/normalize_call.h"
#include "shapes/statement_folder.h"

namespace tarn::host {
namespace {

void AddTimes(ShapeCount& count, const std::optional<LogTime>& first,
              const std::optional<LogTime>& last) {
  for (const auto& time : {first, last}) {
    if (time) ExtendSpan(count.first_time, count.last_time, *time);
  }
}

// Counts what one thread takes from the source.
class Worker {
 public:
  Worker(impl_dao::CProductInterface& product, const CountOptions& options)
      : product_(product), fold_(options.fold) {}

  ShapeCount Count(const BatchSource& source) {
    StatementBatch batch;
    for (std::uint64_t position = 0; source(batch, position);) {
      if (fold_ && (!folder_ || dialect_ != batch.SqlDialect())) {
        dialect_ = batch.SqlDialect();
        folder_.emplace(dialect_);
      }
      AddTimes(count_, batch.FirstTime(), batch.LastTime());
      for (std::size_t index = 0; index < batch.Size(); ++index) {
        Add(batch[index], batch.ExecutionOf(index), position + index);
      }
    }
    return std::move(count_);
  }

 private:
  void Add(std::string_view statement, const Execution& execution, std::uint64_t position) {
    // What the product refuses in a statement is refused in its shape as well.
    text_ = folder_ && !DecimalBeyondDouble(statement) ? folder_->Fold(statement) : statement;
    if (auto reason = CallNormalize(product_, text_)) {
      ++count_.failed;
      if (!count_.first_failure) count_.first_failure = {position, *std::move(reason)};
      return;
    }
    if (folder_) StatementFolder::ShowPlaces(text_);
    ++count_.counted;
    Shape& shape = count_.shapes[text_];
    if (++shape.count == 1) {
      shape.first = position;
      shape.example = statement;
    }
    if (execution.seconds) shape.times.Add(*execution.seconds);
    shape.rows_sent += execution.rows_sent.value_or(0);
    shape.rows_examined += execution.rows_examined.value_or(0);
  }

  impl_dao::CProductInterface& product_;
  const bool fold_;
  Dialect dialect_ = Dialect::kMysql;
  std::optional<StatementFolder> folder_;
  std::string text_;
  ShapeCount count_;
};

void Merge(ShapeCount& total, ShapeCount part) {
  total.counted += part.counted;
  total.failed += part.failed;
  AddTimes(total, part.first_time, part.last_time);
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
    known.times.Add(shape.times);
    known.rows_sent += shape.rows_sent;
    known.rows_examined += shape.rows_examined;
  }
}

}  // namespace

ShapeCount CountShapes(const BatchSource& source, impl_dao::CProductInterface& product,
                       const CountOptions& options) {
  std::vector<std::future<ShapeCount>> counts;
  for (unsigned thread = 0; thread < options.threads; ++thread) {
    try {
      counts.push_back(std::async(std::launch::async, [&source, &product, &options] {
        return Worker(product, options).Count(source);
      }));
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

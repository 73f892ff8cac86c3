#include "shapes/counter.h"

#include <algorithm>
#include <cassert>
#include <future>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "plugin/normalize_call.h"
#include "shapes/fingerprint.h"
#include "shapes/shape_rules.h"

namespace tarn::host {
namespace {

// Empty if the log does not record the detail.
std::string_view DetailOf(const Execution& execution, Detail detail) noexcept {
  const std::array texts = {execution.user, execution.database, execution.host};
  return texts.at(static_cast<std::size_t>(detail));
}

// Whether `time` is before `limit`.
bool IsBefore(const LogTime& time, const LogTime& limit) noexcept {
  return limit.offset_seconds ? time.Instant() < limit.Instant()
                              : time.wall_microseconds < limit.wall_microseconds;
}

// Counts the statements that one thread takes from the source.
class Worker {
 public:
  Worker(impl_dao::CProductInterface& product, const CountOptions& options)
      : product_(product), options_(options) {}

  ShapeCount Count(const BatchSource& source) {
    const bool filtered = options_.filter.Active();
    StatementBatch batch;
    for (std::uint64_t position = 0; source(batch, position);) {
      ShapeMaker shape_maker({batch.SqlDialect(), options_.fold_digits});
      if (!filtered) {
        WidenSpan(count_.first_time, count_.last_time, batch.FirstTime());
        WidenSpan(count_.first_time, count_.last_time, batch.LastTime());
      }
      for (std::size_t index = 0; index < batch.Size(); ++index) {
        const Execution& execution = batch.ExecutionOf(index);
        if (filtered) {
          if (!Passes(execution)) continue;
          WidenSpan(count_.first_time, count_.last_time, execution.time);
        }
        Add(batch[index], execution, position + index, shape_maker);
      }
    }
    return std::move(count_);
  }

 private:
  bool Passes(const Execution& execution) {
    const ExecutionFilter& filter = options_.filter;
    if ((filter.since || filter.until) && !execution.time) {
      ++count_.without_time;
      return false;
    }
    if (filter.since && IsBefore(*execution.time, *filter.since)) return false;
    if (filter.until && !IsBefore(*execution.time, *filter.until)) return false;
    for (std::size_t detail = 0; detail < kDetails; ++detail) {
      const std::optional<std::string>& wanted = filter.details.at(detail);
      if (!wanted) continue;
      const std::string_view told = DetailOf(execution, static_cast<Detail>(detail));
      if (told.empty()) ++count_.without_detail.at(detail);
      if (told.empty() || told != *wanted) return false;
    }
    return true;
  }

  void Add(std::string_view statement, const Execution& execution, std::uint64_t position,
           ShapeMaker& shape_maker) {
    bool canonical = false;
    if (options_.exact || options_.keys) {
      canonical_ = statement;
      auto reason = CallNormalize(product_, canonical_);
      canonical = !reason;
      if (reason) {
        ++count_.failed;
        if (!count_.first_failure) count_.first_failure = {position, *std::move(reason)};
        if (options_.exact) return;
      }
    }
    key_.shape = options_.exact ? canonical_ : shape_maker.MakeShape(statement);
    if (options_.group_by) key_.group = DetailOf(execution, *options_.group_by);
    Shape& shape = count_.shapes[key_];
    shape.Add(statement, execution);
    if (canonical && options_.keys) shape.keys.insert(Fingerprint(canonical_));
    if (execution.executed) ++count_.counted;
  }

  impl_dao::CProductInterface& product_;
  const CountOptions& options_;
  std::string canonical_;
  ShapeKey key_;
  ShapeCount count_;
};

}  // namespace

const char* NameOf(Detail detail) noexcept {
  constexpr std::array kNames = {"user", "db", "host"};
  return kNames.at(static_cast<std::size_t>(detail));
}

bool ExecutionFilter::Active() const noexcept {
  return since || until || std::any_of(details.begin(), details.end(), [](const auto& wanted) {
           return wanted.has_value();
         });
}

ShapeCount& ShapeCount::operator+=(ShapeCount other) {
  counted = CappedSum(counted, other.counted);
  failed = CappedSum(failed, other.failed);
  WidenSpan(first_time, last_time, other.first_time);
  WidenSpan(first_time, last_time, other.last_time);
  without_time += other.without_time;
  for (std::size_t i = 0; i < kDetails; ++i) without_detail.at(i) += other.without_detail.at(i);
  if (other.first_failure &&
      (!first_failure || other.first_failure->position < first_failure->position)) {
    first_failure = std::move(other.first_failure);
  }
  // Moves the new shapes out of `other`, and leaves those that are known here already.
  shapes.merge(other.shapes);
  for (const auto& [key, shape] : other.shapes) shapes.at(key) += shape;
  return *this;
}

ShapeCount CountShapes(const BatchSource& source, impl_dao::CProductInterface& product,
                       const CountOptions& options) {
  assert(options.threads > 0);
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
  for (std::size_t index = 1; index < counts.size(); ++index) total += counts[index].get();
  return total;
}

}  // namespace tarn::host

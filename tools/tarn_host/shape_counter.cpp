#include "tarn_host/shape_counter.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

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
  const auto found = count.shapes.find(sql);
  if (found != count.shapes.end()) {
    ++found->second.count;
  } else {
    count.shapes.emplace(sql, Shape{1, position, std::string(statement)});
  }
}

void Merge(ShapeCount& total, ShapeCount part) {
  total.counted += part.counted;
  total.failed += part.failed;
  if (part.first_failure &&
      (!total.first_failure || part.first_failure->position < total.first_failure->position)) {
    total.first_failure = std::move(part.first_failure);
  }
  total.shapes.merge(part.shapes);
  // What is left in `part` is in both.
  for (auto& [canonical, shape] : part.shapes) {
    Shape& known = total.shapes.find(canonical)->second;
    known.count += shape.count;
    if (shape.first < known.first) {
      known.first = shape.first;
      known.example = std::move(shape.example);
    }
  }
}

}  // namespace

ShapeCounter::ShapeCounter(impl_dao::CProductInterface& product, unsigned threads)
    : product_(product), queue_limit_(std::size_t{2} * threads), counts_(threads) {
  threads_.reserve(threads);
  for (ShapeCount& count : counts_) {
    try {
      threads_.emplace_back([this, &count] { RunWorker(count); });
    } catch (...) {
      // The threads that have started do not end of themselves.
      Stop();
      throw;
    }
  }
}

ShapeCounter::~ShapeCounter() { Stop(); }

StatementBatch ShapeCounter::SpareBatch() {
  const std::lock_guard lock(mutex_);
  if (spare_.empty()) return {};
  StatementBatch batch = std::move(spare_.back());
  spare_.pop_back();
  return batch;
}

void ShapeCounter::Add(StatementBatch batch, std::uint64_t position) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return queue_.size() < queue_limit_ || stopped_; });
  queue_.push_back({std::move(batch), position});
  lock.unlock();
  changed_.notify_all();
}

ShapeCount ShapeCounter::Finish(bool abandon) {
  if (abandon) Stop();
  {
    const std::lock_guard lock(mutex_);
    finished_ = true;
  }
  changed_.notify_all();
  threads_.clear();
  if (trouble_) std::rethrow_exception(trouble_);
  ShapeCount total = std::move(counts_.front());
  for (std::size_t index = 1; index < counts_.size(); ++index) {
    Merge(total, std::move(counts_[index]));
  }
  return total;
}

void ShapeCounter::RunWorker(ShapeCount& count) {
  try {
    std::string sql;
    while (auto work = Take()) {
      for (std::size_t index = 0; index < work->batch.Size(); ++index) {
        if (stopped_.load(std::memory_order_relaxed)) return;
        CountStatement(work->batch[index], work->position + index, product_, sql, count);
      }
      bytes_done_.fetch_add(work->batch.BytesRead(), std::memory_order_relaxed);
      const std::lock_guard lock(mutex_);
      spare_.push_back(std::move(work->batch));
    }
  } catch (...) {
    {
      const std::lock_guard lock(mutex_);
      trouble_ = std::current_exception();
    }
    Stop();
  }
}

std::optional<ShapeCounter::Work> ShapeCounter::Take() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !queue_.empty() || finished_ || stopped_; });
  if (queue_.empty() || stopped_) return std::nullopt;
  Work work = std::move(queue_.front());
  queue_.pop_front();
  lock.unlock();
  changed_.notify_all();
  return work;
}

void ShapeCounter::Stop() noexcept {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  changed_.notify_all();
}

}  // namespace tarn::host

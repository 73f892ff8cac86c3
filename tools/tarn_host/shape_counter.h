#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "impl_dao/product_interface.h"
#include "tarn_host/input/reader.h"

namespace tarn::host {

// What is known of the statements that share one canonical text.
struct Shape {
  std::uint64_t count;
  // Where the first of them stands among all statements; the first statement of all has 1.
  std::uint64_t first;
  // That first statement.
  std::string example;
};

struct StatementFailure {
  // Where the statement stands, as in Shape::first.
  std::uint64_t position;
  std::string reason;
};

struct ShapeCount {
  // Keyed by canonical text.
  std::unordered_map<std::string, Shape> shapes;
  // Statements counted in `shapes`, and those that the product threw on.
  std::uint64_t counted = 0;
  std::uint64_t failed = 0;
  std::optional<StatementFailure> first_failure;
};

// Counts statements by canonical text on several threads at once. Each keeps a count of its own;
// the counts are merged at the end. One thread hands in the batches; all members but BytesDone are
// for that thread alone.
class ShapeCounter {
 public:
  // `product` must outlive the counter and stand concurrent calls. Throws std::system_error when no
  // thread can be started.
  ShapeCounter(impl_dao::CProductInterface& product, unsigned threads);
  ShapeCounter(const ShapeCounter&) = delete;
  ShapeCounter& operator=(const ShapeCounter&) = delete;
  // Drops what has not been counted.
  ~ShapeCounter();

  // A batch to fill: one that has been counted, when there is one, with its memory.
  StatementBatch SpareBatch();

  // Hands over a batch whose first statement stands at `position` (see Shape::first). Waits while
  // the threads have enough to do.
  void Add(StatementBatch batch, std::uint64_t position);

  // Waits until all that was handed over is counted, or for the statements at work alone if
  // `abandon`. Throws what stopped a thread, such as std::bad_alloc. To be called once.
  ShapeCount Finish(bool abandon);

  // Bytes of input that have been counted. Thread-safe.
  std::uint64_t BytesDone() const noexcept { return bytes_done_.load(std::memory_order_relaxed); }

 private:
  struct Work {
    StatementBatch batch;
    std::uint64_t position;
  };

  void RunWorker(ShapeCount& count);
  std::optional<Work> Take();
  void Stop() noexcept;

  impl_dao::CProductInterface& product_;
  std::size_t queue_limit_;
  std::atomic<std::uint64_t> bytes_done_{0};
  // Makes the threads drop what they have.
  std::atomic<bool> stopped_{false};

  std::mutex mutex_;  // Guards the members up to threads_.
  std::condition_variable changed_;
  std::deque<Work> queue_;
  std::vector<StatementBatch> spare_;
  bool finished_ = false;
  std::exception_ptr trouble_;

  // One for each thread, and used by it alone until it is joined.
  std::vector<ShapeCount> counts_;
  std::vector<std::jthread> threads_;
};

}  // namespace tarn::host

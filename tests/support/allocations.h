// Counts every operator new and delete of the program that links it, and makes them (without a
// sanitizer also every malloc) fail on demand. While a failure or a watch is set, only one thread
// may run.
#pragma once

#include <cstddef>
#include <string_view>

namespace tarn::test {

// Number of blocks allocated and not yet freed.
long LiveAllocations() noexcept;

// Records the greatest number of bytes that operator new has allocated at one time since the newest
// of these objects was constructed, not counting those from before.
class PeakMemory {
 public:
  PeakMemory() noexcept;
  std::size_t Bytes() const noexcept;

 private:
  std::size_t before_;
};

// During its lifetime the `n`-th allocation (from 1) fails, once: operator new throws, malloc
// returns null.
class FailNthAllocation {
 public:
  explicit FailNthAllocation(long n) noexcept;
  FailNthAllocation(const FailNthAllocation&) = delete;
  FailNthAllocation& operator=(const FailNthAllocation&) = delete;
  ~FailNthAllocation();

  // Whether there was an n-th allocation.
  static bool Happened() noexcept;
};

// A secret for WatchFreedBlocks. It is longer than a string holds without allocating.
inline constexpr const char* kLongPassword = "correct horse battery staple";

// During its lifetime searches every block that is freed. `secret`, of 16 bytes or more, is
// borrowed.
class WatchFreedBlocks {
 public:
  explicit WatchFreedBlocks(std::string_view secret) noexcept;
  WatchFreedBlocks(const WatchFreedBlocks&) = delete;
  WatchFreedBlocks& operator=(const WatchFreedBlocks&) = delete;
  ~WatchFreedBlocks();

  // Blocks that held the secret.
  static int WithSecret() noexcept;
};

}  // namespace tarn::test

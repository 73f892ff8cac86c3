// Sees every operator new and delete of the program that links it, and fails them and, without a
// sanitizer, every malloc on demand. While anything is failed or watched, one thread may run.
#pragma once

#include <cstddef>
#include <string_view>

namespace tarn::test {

// Number of blocks allocated and not yet freed.
long LiveAllocations() noexcept;

// During its lifetime notes the most bytes that operator new has handed out at one time, beyond
// those before.
class PeakMemory {
 public:
  PeakMemory() noexcept;
  PeakMemory(const PeakMemory&) = delete;
  PeakMemory& operator=(const PeakMemory&) = delete;
  ~PeakMemory() = default;

  std::size_t Bytes() const noexcept;

 private:
  std::size_t before_;
};

// During its lifetime the `n`-th allocation (from 1) fails, once: operator new throws, malloc is
// null.
class FailNthAllocation {
 public:
  explicit FailNthAllocation(long n) noexcept;
  FailNthAllocation(const FailNthAllocation&) = delete;
  FailNthAllocation& operator=(const FailNthAllocation&) = delete;
  ~FailNthAllocation();

  // Whether there was an n-th allocation.
  static bool Happened() noexcept;
};

// A secret for WatchFreedBlocks: longer than what a string holds without allocating.
inline constexpr const char* kLongPassword = "correct horse battery staple";

// During its lifetime looks through every block as it is freed. `secret`, of 16 bytes or more, is
// borrowed.
class WatchFreedBlocks {
 public:
  explicit WatchFreedBlocks(std::string_view secret) noexcept;
  WatchFreedBlocks(const WatchFreedBlocks&) = delete;
  WatchFreedBlocks& operator=(const WatchFreedBlocks&) = delete;
  ~WatchFreedBlocks();

  // Blocks that held the secret.
  static int WithSecret() noexcept;

  // Blocks that began with as many bytes 0xCC as the secret is long.
  static int Wiped() noexcept;
};

}  // namespace tarn::test

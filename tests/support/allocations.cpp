#include "support/allocations.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

// The C library's malloc, under the name that it keeps if another malloc replaces it.
extern "C" void* __libc_malloc(std::size_t size) noexcept;  // NOLINT(bugprone-reserved-identifier)

namespace {

struct State {
  std::atomic<long> live = 0;
  std::atomic<std::size_t> live_bytes = 0;
  std::atomic<std::size_t> peak_bytes = 0;
  // The number of allocations up to the one that fails; if not above 0, none fails.
  long until_failure = 0;
  bool failed = false;
  std::string_view secret;
  int with_secret = 0;
};
// Initialised before any allocation.
constinit State state;

// Counts an allocation, and returns whether it must fail.
bool IsToFail() noexcept {
  if (state.until_failure <= 0 || --state.until_failure != 0) return false;
  state.failed = true;
  return true;
}

// The sanitizers have a malloc of their own, so only operator new fails.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TARN_MALLOC_FAILS 0
#else
#define TARN_MALLOC_FAILS 1
#endif

void* Allocate(std::size_t size) {
  void* block = !TARN_MALLOC_FAILS && IsToFail() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  ++state.live;
  state.live_bytes += malloc_usable_size(block);
  if (state.live_bytes > state.peak_bytes) state.peak_bytes = state.live_bytes.load();
  // Bytes from before the watch do not count.
  if (!state.secret.empty()) std::memset(block, 0, malloc_usable_size(block));
  return block;
}

void Free(void* block) noexcept {
  if (block == nullptr) return;
  --state.live;
  state.live_bytes -= malloc_usable_size(block);
  if (!state.secret.empty()) {
    const std::string_view bytes(static_cast<const char*>(block), malloc_usable_size(block));
    if (bytes.find(state.secret) != std::string_view::npos) ++state.with_secret;
  }
  std::free(block);
}

}  // namespace

#if TARN_MALLOC_FAILS
// Operator new calls this, and so do the allocating functions of C libraries, for example fopen.
extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept {
  if (!IsToFail()) return __libc_malloc(size);
  errno = ENOMEM;
  return nullptr;
}
#endif

// The forms for arrays call these.
void* operator new(std::size_t size) { return Allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  try {
    return Allocate(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* block) noexcept { Free(block); }
void operator delete(void* block, std::size_t /*size*/) noexcept { Free(block); }

namespace tarn::test {

long LiveAllocations() noexcept { return state.live; }

PeakMemory::PeakMemory() noexcept : before_(state.live_bytes) { state.peak_bytes = before_; }
std::size_t PeakMemory::Bytes() const noexcept { return state.peak_bytes - before_; }

FailNthAllocation::FailNthAllocation(long n) noexcept {
  state.until_failure = n;
  state.failed = false;
}
FailNthAllocation::~FailNthAllocation() { state.until_failure = 0; }
bool FailNthAllocation::Happened() noexcept { return state.failed; }

WatchFreedBlocks::WatchFreedBlocks(std::string_view secret) noexcept {
  state.secret = secret;
  state.with_secret = 0;
}
WatchFreedBlocks::~WatchFreedBlocks() { state.secret = {}; }
int WatchFreedBlocks::WithSecret() noexcept { return state.with_secret; }

}  // namespace tarn::test

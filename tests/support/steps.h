// Counts the steps of code that is compiled with -fsanitize-coverage=trace-pc, on each thread. One
// file of a program includes it.
#pragma once

#include <cstdint>

namespace tarn::test {

inline thread_local std::uint64_t steps = 0;

}  // namespace tarn::test

// The compiler calls it at the beginning of each basic block.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" void __sanitizer_cov_trace_pc() { ++tarn::test::steps; }

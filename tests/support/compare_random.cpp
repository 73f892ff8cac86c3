// Compares both engines on random statements and prints how many differ. Needs no test framework,
// only a compiler and the regular-expression library.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/compare_engines.h"
#include "support/random_statements.h"

int main(int argc, char** argv) {
  const long count = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 10'000;
  const std::uint64_t start = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
  tarn::test::RandomStatements statements(start);
  long different = 0;
  long gave_up = 0;
  for (long i = 0; i < count; ++i) {
    const tarn::test::Comparison comparison = tarn::test::CompareEngines(statements.Next());
    if (comparison.outcome == tarn::test::Outcome::kPatternsGaveUp) ++gave_up;
    if (comparison.outcome != tarn::test::Outcome::kDifferent) continue;
    if (++different <= 5) std::fprintf(stderr, "%s\n", comparison.line.c_str());
  }
  std::printf("%ld statements, %ld different, %ld on which the patterns gave up\n", count,
              different, gave_up);
  return different == 0 ? 0 : 1;
}

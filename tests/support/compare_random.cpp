// compare_random [COUNT [START]]: compares both engines on random statements. Needs no test
// framework, only a compiler and the regular-expression library.
#include <cstdlib>

#include "support/compare_engines.h"
#include "support/random_statements.h"

int main(int argc, char** argv) {
  tarn::test::RandomStatements statements(argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1);
  tarn::test::Tally tally;
  for (long i = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 10'000; i > 0; --i) {
    tally.Compare(statements.Next());
  }
  return tally.AllSame() ? 0 : 1;
}

// Compares both engines of the normalizer and stops at the first statement on which they differ.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/compare_engines.h"

namespace {

// Counts the statements on which the patterns gave up, which prove nothing. Prints them at the end.
class GiveUps {
 public:
  ~GiveUps() {
    std::fprintf(stderr, "the patterns gave up on %zu of %zu statements\n", count_, compared_);
  }
  void Count(bool gave_up) noexcept {
    ++compared_;
    if (gave_up) ++count_;
  }

 private:
  std::size_t compared_ = 0;
  std::size_t count_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static GiveUps give_ups;
  using tarn::test::Outcome;
  const auto comparison =
      tarn::test::CompareEngines(std::string(reinterpret_cast<const char*>(data), size));
  give_ups.Count(comparison.outcome == Outcome::kPatternsGaveUp);
  if (comparison.outcome == Outcome::kDifferent) {
    std::fprintf(stderr, "%s\n", comparison.line.c_str());
    std::abort();
  }
  return 0;
}

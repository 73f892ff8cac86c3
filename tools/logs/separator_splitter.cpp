#include "logs/format_splitters.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>

namespace tarn::host {
namespace {

class SeparatorSplitter final : public Splitter {
 public:
  SeparatorSplitter(char separator, std::size_t max_statement) noexcept
      : separator_(separator), max_statement_(max_statement) {}

  std::size_t Split(std::string_view text, bool last, Found& found) override {
    std::size_t begin = 0;
    for (;;) {
      const std::size_t end = text.find(separator_, std::max(begin, searched_));
      if (end == std::string_view::npos) break;
      Add(text.substr(begin, end - begin), found);
      begin = end + 1;
    }
    if (last && begin < text.size()) {
      Add(text.substr(begin), found);
      begin = text.size();
    }
    if (text.size() - begin > max_statement_) {
      too_long_ = true;
      begin = text.size();
    }
    searched_ = text.size() - begin;
    return begin;
  }

 private:
  void Add(std::string_view statement, Found& found) {
    if (too_long_) {
      found.CountTooLong();
    } else {
      found.statements.push_back({statement, {}});
    }
    too_long_ = false;
  }

  const char separator_;
  const std::size_t max_statement_;
  // Whether the first bytes of the statement that has begun are dropped.
  bool too_long_ = false;
  // No separator is in this many bytes at the start of the next text.
  std::size_t searched_ = 0;
};

}  // namespace

std::unique_ptr<Splitter> MakeSeparatorSplitter(char separator, const SplitterOptions& options) {
  return std::make_unique<SeparatorSplitter>(separator, options.max_statement);
}

}  // namespace tarn::host

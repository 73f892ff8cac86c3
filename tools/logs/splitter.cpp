#include "logs/splitter.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace tarn::host {
namespace {

class SeparatorSplitter final : public Splitter {
 public:
  explicit SeparatorSplitter(char separator) noexcept : separator_(separator) {}

  std::size_t Split(std::string_view text, bool last, Found& found) override {
    std::size_t begin = 0;
    for (;;) {
      const std::size_t end = text.find(separator_, std::max(begin, searched_));
      if (end == std::string_view::npos) break;
      found.statements.push_back({text.substr(begin, end - begin), {}});
      begin = end + 1;
    }
    if (last && begin < text.size()) {
      found.statements.push_back({text.substr(begin), {}});
      begin = text.size();
    }
    searched_ = text.size() - begin;
    return begin;
  }

 private:
  char separator_;
  // How much of the next text is known to hold no separator.
  std::size_t searched_ = 0;
};

}  // namespace

void Found::Clear() {
  statements.clear();
  owned.clear();
  first_time.reset();
  last_time.reset();
}

std::unique_ptr<Splitter> MakeSeparatorSplitter(char separator) {
  return std::make_unique<SeparatorSplitter>(separator);
}

const std::map<std::string, StatementFormat>& StatementFormats() {
  static const std::map<std::string, StatementFormat> kFormats{
      {"sql", StatementFormat::kSql},
      {"lines", StatementFormat::kLines},
      {"nul", StatementFormat::kNul},
      {"slowlog", StatementFormat::kSlowLog},
      {"general", StatementFormat::kGeneralLog},
      {"csvlog", StatementFormat::kCsvLog}};
  return kFormats;
}

}  // namespace tarn::host

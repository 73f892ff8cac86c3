#include "logs/line_splitter.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <memory>
#include <string_view>

#include "sql/text.h"

namespace tarn::host {
namespace {

// Each line is a statement.
class PlainSplitter final : public LineSplitter {
 public:
  using LineSplitter::LineSplitter;

 private:
  void EndInput() override {}
  void TakeLine(std::string_view line) override {
    if (LineIsCut()) return Out().CountTooLong();
    Out().Add(line);
  }
};

}  // namespace

std::size_t LineSplitter::Split(std::string_view text, bool last, Found& found) {
  text_ = text;
  found_ = &found;
  while (line_begin_ < text.size()) {
    const std::size_t end = text.find(end_, std::max(line_begin_, searched_));
    line_ended_ = end != std::string_view::npos;
    if (!line_ended_ && !last) break;
    line_end_ = std::min(end, text.size());
    const std::string_view line = text.substr(line_begin_, line_end_ - line_begin_);
    if (line_is_cut_) {
      TakeMore(line);
    } else {
      TakeLine(line);
    }
    line_begin_ = std::min(line_end_ + 1, text.size());
    line_is_cut_ = false;
  }
  if (last) EndInput();
  DropTooLong();
  const std::size_t done = std::min(body_begin_, line_begin_);
  searched_ = text.size() - done;
  line_begin_ -= done;
  if (HasBody()) body_begin_ -= done;
  return done;
}

void LineSplitter::EndInput() {
  EndBody();
  if (!line_ended_) {
    Out().summary.problem = "ends within a line, so that its last entry may be cut";
  }
}

void LineSplitter::BeginBody(std::string_view rest) noexcept {
  assert(!HasBody());
  body_begin_ = static_cast<std::size_t>(rest.data() - text_.data());
  body_is_too_long_ = line_is_cut_;
}

void LineSplitter::EndBodyAt(std::size_t end) {
  if (!HasBody()) return;
  const std::string_view body = text_.substr(body_begin_, end - body_begin_);
  DropBody();
  if (body_is_too_long_) return found_->CountTooLong();
  TakeBody(Trimmed(body));
}

void LineSplitter::DropTooLong() {
  const std::size_t limit = found_->max_statement;
  if (text_.size() - line_begin_ > limit) {
    const bool first = !line_is_cut_;
    const std::string_view piece = text_.substr(line_begin_);
    line_is_cut_ = true;
    if (first) {
      TakeLine(piece);
    } else {
      TakeMore(piece);
    }
    line_begin_ = text_.size();
  }
  if (HasBody() && (body_is_too_long_ || text_.size() - body_begin_ > limit)) {
    body_is_too_long_ = true;
    body_begin_ = line_begin_;
  }
}

std::string_view WithoutHole(std::string_view line) noexcept {
  line.remove_prefix(std::min(line.find_first_not_of('\0'), line.size()));
  return line;
}

std::unique_ptr<Splitter> MakeLinesSplitter(const SplitterOptions& /*options*/) {
  return std::make_unique<PlainSplitter>('\n');
}

std::unique_ptr<Splitter> MakeNulSplitter(const SplitterOptions& /*options*/) {
  return std::make_unique<PlainSplitter>('\0');
}

}  // namespace tarn::host

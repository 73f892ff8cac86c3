#include "logs/line_splitter.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace tarn::host {

std::size_t LineSplitter::Split(std::string_view text, bool last, Found& found) {
  text_ = text;
  found_ = &found;
  bool line_ended = true;
  while (line_begin_ < text.size()) {
    if (text[line_begin_] == '\0' && !line_is_cut_ && IsBetweenEntries()) {
      PassHole();
      continue;
    }
    const std::size_t end = text.find('\n', std::max(line_begin_, searched_));
    if (end == std::string_view::npos && !last) break;
    line_ended = end != std::string_view::npos;
    const std::size_t line_end = std::min(end, text.size());
    const std::string_view line = text.substr(line_begin_, line_end - line_begin_);
    if (!line_ended && HasBody() && MayBeginEntry(line)) EndBody();
    if (line_is_cut_) {
      TakeEndOfLongLine(line);
    } else {
      TakeLine(line);
    }
    line_begin_ = std::min(line_end + 1, text.size());
    line_is_cut_ = false;
  }
  if (last) {
    problem_ = WhyCut(line_ended);
    EndBody();
    EndInput();
  }
  DropTooLong();
  searched_ = text.size();
  const std::size_t done = std::min(body_begin_, line_begin_);
  line_begin_ -= done;
  searched_ -= done;
  if (HasBody()) body_begin_ -= done;
  return done;
}

// If a file is emptied while its server writes, it begins with NUL bytes.
void LineSplitter::PassHole() {
  EndBody();
  line_begin_ = std::min(text_.find_first_not_of('\0', line_begin_), text_.size());
}

void LineSplitter::DropTooLong() {
  if (text_.size() - std::min(body_begin_, line_begin_) <= max_statement_) return;
  if (!line_is_cut_ && text_.size() - line_begin_ > max_statement_) {
    line_is_cut_ = true;
    TakeLine(text_.substr(line_begin_));
  }
  if (HasBody() && text_.size() - body_begin_ > max_statement_) {
    body_is_too_long_ = true;
    body_begin_ = line_begin_;
  }
  if (!line_is_cut_) return;
  // The last bytes, ";" or ";\r", decide whether a statement ends.
  constexpr std::size_t kKept = 2;
  line_begin_ = text_.size() - std::min(kKept, text_.size());
  if (HasBody()) {
    body_is_too_long_ = true;
    body_begin_ = line_begin_;
  }
}

}  // namespace tarn::host

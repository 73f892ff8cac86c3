#include "logs/line_splitter.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <utility>

#include "sql/dialect.h"
#include "sql/lexer.h"
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

// Whether semicolons may be within the statement, for example in the body of CREATE PROCEDURE.
bool HasBody(std::string_view statement) {
  const auto is_one_of = [](const Token& token, std::initializer_list<std::string_view> words) {
    return std::any_of(words.begin(), words.end(), [&token](std::string_view word) {
      return EqualIgnoringCase(token.text, word);
    });
  };
  Lexer lexer(statement, Dialect::kMysql);
  Token token = lexer.Next();
  // BEGIN NOT ATOMIC begins a block, other forms a transaction.
  if (is_one_of(token, {"begin"})) return is_one_of(lexer.Next(), {"not"});
  if (!is_one_of(token, {"create", "alter"})) return false;
  // A definer may come before the kind: CREATE DEFINER=`a;b`@`%` PROCEDURE
  while (token.kind != TokenKind::kEnd && !token.Is(';') && !is_one_of(token, {"table", "view"})) {
    token = lexer.Next();
    if (is_one_of(token, {"procedure", "function", "trigger", "event", "package"})) return true;
  }
  return false;
}

}  // namespace

std::size_t LineSplitter::Split(std::string_view text, bool last, Found& found) {
  text_ = text;
  found_ = &found;
  while (line_begin_ < text.size()) {
    const std::size_t end = text.find(end_, std::max(line_begin_, searched_));
    line_ended_ = end != std::string_view::npos;
    if (!line_ended_ && !last) break;
    const std::string_view line = text.substr(line_begin_, end - line_begin_);
    line_is_cut_ ? TakeMore(line) : TakeLine(line);
    line_begin_ = line_ended_ ? end + 1 : text.size();
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

void LineSplitter::EndBody() {
  if (!HasBody()) return;
  const std::string_view body = text_.substr(body_begin_, line_begin_ - body_begin_);
  DropBody();
  if (body_is_too_long_) return found_->CountTooLong();
  TakeBody(Trimmed(body));
}

void LineSplitter::DropTooLong() {
  const std::size_t limit = found_->max_statement;
  if (text_.size() - line_begin_ > limit) {
    const bool was_cut = std::exchange(line_is_cut_, true);
    const std::string_view piece = text_.substr(line_begin_);
    was_cut ? TakeMore(piece) : TakeLine(piece);
    line_begin_ = text_.size();
  }
  if (HasBody() && line_begin_ - body_begin_ > limit) {
    body_is_too_long_ = true;
    body_begin_ = line_begin_;
  }
}

std::string_view WithoutHole(std::string_view line) noexcept {
  line.remove_prefix(std::min(line.find_first_not_of('\0'), line.size()));
  return line;
}

void SplitPacket(std::string_view packet, Found& found,
                 const std::function<void(std::string_view)>& take) {
  // A packet has one statement in practice. Without a limit a batch would grow with the semicolons
  // of a hostile one.
  constexpr std::size_t kMostStatements = 1'000;
  // Only the splitter drops a comment before a statement.
  constexpr std::string_view kComments = "/-#";
  if (packet.empty()) return;
  const bool one =
      packet.find(';') >= packet.size() - 1 && kComments.find(packet[0]) == std::string_view::npos;
  if (one || HasBody(packet)) {
    if (packet.ends_with(';')) packet.remove_suffix(1);
    if (!packet.empty()) take(Trimmed(packet));
    return;
  }
  const auto splitter = MakeSqlSplitter({});
  constexpr std::size_t kPiece = std::size_t{64} * 1024;
  Found parts;
  std::size_t done = 0;
  for (std::size_t end = 0; end < packet.size() && parts.statements.size() <= kMostStatements;) {
    end = std::min(packet.size(), end + kPiece);
    done += splitter->Split(packet.substr(done, end - done), end == packet.size(), parts);
  }
  if (parts.statements.size() > kMostStatements) {
    ++found.summary.damaged;
    parts.statements.resize(kMostStatements);
  }
  for (const FoundStatement& part : parts.statements) take(part.text);
}

std::unique_ptr<Splitter> MakeLinesSplitter(const SplitterOptions& /*options*/) {
  return std::make_unique<PlainSplitter>('\n');
}

std::unique_ptr<Splitter> MakeNulSplitter(const SplitterOptions& /*options*/) {
  return std::make_unique<PlainSplitter>('\0');
}

}  // namespace tarn::host

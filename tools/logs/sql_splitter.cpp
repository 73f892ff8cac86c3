#include "logs/sql_splitter.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "sql/dialect.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

class SqlSplitter final : public Splitter {
 public:
  explicit SqlSplitter(Dialect dialect) : dialect_(dialect) { SetDelimiter(";"); }

  std::size_t Split(std::string_view text, bool last, Found& found) override {
    text_ = text;
    last_ = last;
    found_ = &found;
    // Each of these stops short when it needs a byte that has not arrived.
    bool more = true;
    while (more) {
      switch (state_) {
        case State::kCode:
          more = PassCode();
          break;
        case State::kQuote:
          more = PassQuote();
          break;
        case State::kDollarQuote:
          more = PassUpTo(dollar_tag_);
          break;
        case State::kLineComment:
          more = PassUpTo("\n");
          break;
        case State::kBlockComment:
          more = PassBlockComment();
          break;
        case State::kDelimiterLine:
          more = PassDelimiterLine();
          break;
      }
    }
    if (last) {
      if (state_ == State::kCode) EndOwnLine(text.size());
      Finish(text.size(), text.size());
    }
    ResolveOpening();
    DropTooLong();
    const std::size_t done = begin_;
    CountLinesTo(std::max(counted_, done));
    counted_ -= done;
    position_ -= done;
    opened_at_ -= std::min(opened_at_, done);
    // What is dropped of a line that is code alone are blanks.
    if (line_begin_ != kNoPlace) line_begin_ -= std::min(line_begin_, done);
    begin_ = 0;
    return done;
  }

  void LimitStatements(std::size_t max_statement) noexcept { max_statement_ = max_statement; }

  std::string Problem() const override {
    const char* what = nullptr;
    if (state_ == State::kBlockComment) what = "comment";
    if (state_ == State::kQuote || state_ == State::kDollarQuote) what = "quote";
    if (what == nullptr) return {};
    return std::string("ends inside a ") + what + " that begins in line " +
           std::to_string(opened_line_);
  }

 private:
  enum class State { kCode, kQuote, kDollarQuote, kLineComment, kBlockComment, kDelimiterLine };
  static constexpr std::size_t kNoPlace = std::string_view::npos;

  void SetDelimiter(std::string_view delimiter) {
    delimiter_ = delimiter;
    stops_ = {};
    for (const char c : std::string_view("'\"-/")) StopAt(c);
    StopAt(delimiter_[0]);
    if (dialect_ == Dialect::kMysql) {
      for (const char c : std::string_view("`#")) StopAt(c);
    } else if (dialect_ == Dialect::kAnsi) {
      StopAt('\n');
    } else {
      StopAt('$');
    }
  }

  void StopAt(char c) noexcept { stops_[static_cast<unsigned char>(c)] = true; }

  bool PassCode() {
    while (position_ < text_.size()) {
      const char c = text_[position_];
      if (!stops_[static_cast<unsigned char>(c)]) {
        if (blank_so_far_ && IsBlank(c)) {
          begin_ = ++position_;
          continue;
        }
        if (!blank_so_far_ || Lower(c) != 'd' || dialect_ != Dialect::kMysql) {
          blank_so_far_ = false;
          do {
            ++position_;
          } while (position_ < text_.size() &&
                   !stops_[static_cast<unsigned char>(text_[position_])]);
          continue;
        }
      }
      const Step step = PassStop(c);
      if (step != Step::kOn) return step == Step::kChanged;
    }
    return false;
  }

  enum class Step { kOn, kChanged, kWait };

  // Looks at the byte `c` at which reading stopped.
  Step PassStop(char c) {
    const std::string_view rest = text_.substr(position_);
    if (c == delimiter_[0]) {
      if (!last_ && rest.size() < delimiter_.size()) return Step::kWait;
      if (rest.starts_with(delimiter_)) {
        line_begin_ = kNoPlace;
        Finish(position_, position_ + delimiter_.size());
        return Step::kOn;
      }
    }
    if (c == '\n') {
      PassLineEnd();
      return Step::kOn;
    }
    if (c == '-' || c == '/' || c == '#') return PassCommentSign(rest);
    if (c == '$') return PassDollar(rest);
    if (c == 'd' || c == 'D') return PassLetterD(rest);
    if (c == '\'' || c == '"' || c == '`') {
      escapes_ = Escapes(c);
      quote_ = c;
      return Enter(State::kQuote, 1);
    }
    return PassOther();
  }

  // Whether a backslash escapes in what the quote at the position opens.
  bool Escapes(char quote) const noexcept {
    if (dialect_ != Dialect::kPostgres) return dialect_ == Dialect::kMysql && quote != '`';
    const std::string_view before = text_.substr(begin_, position_ - begin_);
    return quote == '\'' && !before.empty() && Lower(before.back()) == 'e' &&
           (before.size() == 1 || !IsWord(before[before.size() - 2]));
  }

  // The byte is one like any other.
  Step PassOther() noexcept {
    blank_so_far_ = false;
    ++position_;
    return Step::kOn;
  }

  Step PassCommentSign(std::string_view rest) {
    constexpr std::string_view kLongest = "/*M!";
    const bool undecided = rest == "-" || (rest == "--" && dialect_ == Dialect::kMysql) ||
                           (rest.size() < kLongest.size() && kLongest.starts_with(rest));
    if (undecided && !last_) return Step::kWait;
    if (BeginsLineComment(rest, dialect_)) return EnterComment(State::kLineComment, 1);
    if (!rest.starts_with("/*")) return PassOther();
    depth_ = 1;
    if (BeginsExecutableComment(rest, dialect_)) return Enter(State::kBlockComment, 2);
    return EnterComment(State::kBlockComment, 2);
  }

  Step EnterComment(State state, std::size_t size) noexcept {
    const bool blank = blank_so_far_;
    Enter(state, size);
    blank_so_far_ = blank;
    return Step::kChanged;
  }

  Step Enter(State state, std::size_t size) noexcept {
    state_ = state;
    opened_at_ = position_;
    opened_line_ = 0;
    blank_so_far_ = false;
    line_begin_ = kNoPlace;
    position_ += size;
    return Step::kChanged;
  }

  Step PassDollar(std::string_view rest) {
    if (position_ > begin_ && IsWord(text_[position_ - 1])) return PassOther();
    const std::size_t size = DollarTagSize(rest);
    if (size == kUnfinishedTag) {
      if (!last_) return Step::kWait;
      return PassOther();
    }
    if (size == 0) return PassOther();
    dollar_tag_ = rest.substr(0, size);
    return Enter(State::kDollarQuote, size);
  }

  Step PassLetterD(std::string_view rest) {
    constexpr std::string_view kDelimiter = "delimiter";
    if (!blank_so_far_) return PassOther();
    const std::size_t size = std::min(rest.size(), kDelimiter.size());
    if (!EqualIgnoringCase(rest.substr(0, size), kDelimiter.substr(0, size))) return PassOther();
    if (rest.size() <= kDelimiter.size()) return last_ ? PassOther() : Step::kWait;
    if (!IsBlank(rest[size])) return PassOther();
    EnterComment(State::kDelimiterLine, size);
    return Step::kChanged;
  }

  bool PassDelimiterLine() {
    std::size_t end = text_.find('\n', position_);
    if (end == kNoPlace) {
      position_ = text_.size();
      if (!last_) return false;
      end = text_.size();
    }
    constexpr std::size_t kKeyword = 9;
    const std::string_view line = Trimmed(text_.substr(begin_ + kKeyword, end - begin_ - kKeyword));
    const std::string_view delimiter = line.substr(0, line.find_first_of(" \t"));
    if (!delimiter.empty()) SetDelimiter(delimiter);
    position_ = begin_ = end;
    state_ = State::kCode;
    return true;
  }

  // A line that holds nothing but "GO" or "/" ends a statement.
  void PassLineEnd() {
    EndOwnLine(position_);
    line_begin_ = ++position_;
    if (blank_so_far_) begin_ = position_;
  }

  void EndOwnLine(std::size_t end) {
    if (dialect_ != Dialect::kAnsi || line_begin_ == kNoPlace) return;
    const std::string_view line = Trimmed(text_.substr(line_begin_, end - line_begin_));
    if (line == "/" || EqualIgnoringCase(line, "go")) Finish(line_begin_, end);
  }

  // A doubled quote stands for itself.
  bool PassQuote() {
    while (position_ < text_.size()) {
      const char c = text_[position_];
      if (c == '\\' && escapes_) {
        if (position_ + 1 == text_.size()) return false;
        position_ += 2;
      } else if (c == quote_) {
        if (position_ + 1 == text_.size() && !last_) return false;
        if (text_.substr(position_ + 1, 1) == std::string_view(&quote_, 1)) {
          position_ += 2;
          continue;
        }
        ++position_;
        state_ = State::kCode;
        return true;
      } else {
        ++position_;
      }
    }
    return false;
  }

  bool PassBlockComment() {
    const bool nests = dialect_ == Dialect::kPostgres;
    for (;;) {
      const std::size_t found = text_.find_first_of(nests ? "*/" : "*", position_);
      if (found == kNoPlace || found + 1 == text_.size()) {
        position_ = found == kNoPlace ? text_.size() : found;
        if (blank_so_far_) begin_ = position_;
        return false;
      }
      const std::string_view two = text_.substr(found, 2);
      position_ = found + 1;
      if (two == "*/") {
        ++position_;
        if (--depth_ == 0) break;
      } else if (nests && two == "/*") {
        ++position_;
        ++depth_;
      }
    }
    if (blank_so_far_) begin_ = position_;
    state_ = State::kCode;
    return true;
  }

  // To the end of a line comment or a dollar quote.
  bool PassUpTo(std::string_view end) {
    const std::size_t found = text_.find(end, position_);
    if (found == kNoPlace) {
      // The first bytes of `end` may be there already.
      position_ = std::max(position_, text_.size() - std::min(end.size() - 1, text_.size()));
      if (blank_so_far_) begin_ = position_;
      return false;
    }
    position_ = found + end.size();
    if (state_ == State::kLineComment && dialect_ == Dialect::kAnsi) line_begin_ = position_;
    if (blank_so_far_) begin_ = position_;
    state_ = State::kCode;
    return true;
  }

  // Ends the statement at `end`; the next begins at `next`.
  void Finish(std::size_t end, std::size_t next) {
    if (too_long_) {
      found_->CountTooLong();
      too_long_ = false;
    } else if (!blank_so_far_ && end > begin_) {
      found_->statements.push_back({Trimmed(text_.substr(begin_, end - begin_)), {}});
    }
    blank_so_far_ = true;
    begin_ = position_ = std::max(begin_, next);
  }

  // Forgets the first bytes of the statement that has begun, if it is too long. The last ones tell
  // how a quote that follows is to be read.
  void DropTooLong() noexcept {
    constexpr std::size_t kKept = 2;
    if (text_.size() - begin_ <= max_statement_ || position_ < begin_ + kKept) return;
    too_long_ = !blank_so_far_;
    begin_ = position_ - kKept;
  }

  void ResolveOpening() {
    if (state_ == State::kCode || opened_line_ != 0) return;
    CountLinesTo(opened_at_);
    opened_line_ = line_;
  }

  // No byte is counted twice, however often a quote or comment begins in one statement.
  void CountLinesTo(std::size_t end) {
    const std::string_view lines = text_.substr(counted_, end - counted_);
    line_ += static_cast<std::uint64_t>(std::count(lines.begin(), lines.end(), '\n'));
    counted_ = end;
  }

  Dialect dialect_;
  std::string delimiter_;
  // The bytes at which reading code has to stop and look.
  std::array<bool, 256> stops_{};

  std::size_t max_statement_ = kMaxStatement;
  bool too_long_ = false;

  // Of the call that runs.
  std::string_view text_;
  bool last_ = false;
  Found* found_ = nullptr;

  State state_ = State::kCode;
  char quote_ = '\0';
  bool escapes_ = false;
  std::string dollar_tag_;
  std::uint64_t depth_ = 0;
  // Where the quote or comment that is open begins, and in which line; 0 until that is counted.
  std::size_t opened_at_ = 0;
  std::uint64_t opened_line_ = 0;
  // Whether the statement that has begun holds nothing but blanks and comments so far.
  bool blank_so_far_ = true;
  std::size_t begin_ = 0;
  std::size_t position_ = 0;
  // Where the line begins, unless something but code was seen in it.
  std::size_t line_begin_ = 0;
  // Up to where lines are counted, and the number of the line there.
  std::size_t counted_ = 0;
  std::uint64_t line_ = 1;
};

}  // namespace

std::unique_ptr<Splitter> MakeSqlSplitter(Dialect dialect) {
  return std::make_unique<SqlSplitter>(dialect);
}

std::unique_ptr<Splitter> MakeSqlSplitter(const SplitterOptions& options) {
  auto splitter = std::make_unique<SqlSplitter>(options.dialect);
  splitter->LimitStatements(options.max_statement);
  return splitter;
}

}  // namespace tarn::host

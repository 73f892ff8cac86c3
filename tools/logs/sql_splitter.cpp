#include "logs/format_splitters.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "sql/dialect.h"
#include "sql/opaque.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

class SqlSplitter final : public Splitter {
 public:
  explicit SqlSplitter(const SplitterOptions& options)
      : rules_(RulesOf(options.dialect)),
        opaque_(options.dialect),
        max_statement_(options.max_statement) {
    SetDelimiter(";");
  }

  std::size_t Split(std::string_view text, bool last, Found& found) override {
    text_ = text;
    last_ = last;
    found_ = &found;
    // Each of the functions returns false if it needs a byte that has not arrived.
    while (opaque_.Kind() != Opaque::kNone ? PassOpaque()
           : in_delimiter_line_            ? PassDelimiterLine()
                                           : PassCode()) {
    }
    if (last) {
      if (opaque_.Kind() == Opaque::kNone) EndOwnLine(text.size());
      Finish(text.size(), text.size());
    }
    ResolveOpening();
    DropTooLong();
    const std::size_t done = begin_;
    CountLinesTo(std::max(counted_, done));
    counted_ -= done;
    position_ -= done;
    // The line may have begun within the dropped bytes. If it is code alone, those are blanks.
    if (line_begin_ != kNoPlace) line_begin_ -= std::min(line_begin_, done);
    begin_ = 0;
    return done;
  }

  std::string Problem() const override {
    std::string problem = delimiter_problem_;
    const bool comment = opaque_.Kind() == Opaque::kBlockComment || opaque_.InExecutableComment();
    if (comment || opaque_.Kind() == Opaque::kText || opaque_.Kind() == Opaque::kName) {
      if (!problem.empty()) problem += "; ";
      problem += std::string("ends inside a ") + (comment ? "comment" : "quote") +
                 " that begins in line " + std::to_string(opened_line_);
    }
    return problem;
  }

 private:
  static constexpr std::size_t kNoPlace = std::string_view::npos;

  void SetDelimiter(std::string_view delimiter) {
    delimiter_ = delimiter;
    stops_ = {};
    for (const char c : std::string_view("'\"-/")) StopAt(c);
    StopAt(delimiter_[0]);
    if (rules_.backquoted_names) StopAt('`');
    if (rules_.hash_comments) StopAt('#');
    if (rules_.executable_comments) StopAt('*');
    if (rules_.dollar_quotes) StopAt('$');
    if (rules_.go_lines) StopAt('\n');
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
        if (!blank_so_far_ || Lower(c) != 'd' || !rules_.delimiter_lines) {
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
    if (c == delimiter_[0] && !opaque_.InExecutableComment()) {
      if (!last_ && rest.size() < delimiter_.size() && delimiter_.starts_with(rest)) {
        return Step::kWait;
      }
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
    if (blank_so_far_ && Lower(c) == 'd' && rules_.delimiter_lines) return PassLetterD(rest);
    const bool was_executable = opaque_.InExecutableComment();
    const std::size_t size = opaque_.Open(text_.substr(begin_), position_ - begin_, last_);
    if (size == OpaqueReader::kUndecided) return Step::kWait;
    if (size == 0) return PassOther();
    line_begin_ = kNoPlace;
    const bool comment =
        opaque_.Kind() == Opaque::kLineComment || opaque_.Kind() == Opaque::kBlockComment;
    if (!was_executable) {
      opened_at_ = position_;
      opened_line_ = 0;
    }
    if (!comment) blank_so_far_ = false;
    position_ += size;
    return opaque_.Kind() == Opaque::kNone ? Step::kOn : Step::kChanged;
  }

  // Takes the byte at the position as code without a meaning of its own.
  Step PassOther() noexcept {
    blank_so_far_ = false;
    ++position_;
    return Step::kOn;
  }

  bool PassOpaque() {
    const bool line_comment = opaque_.Kind() == Opaque::kLineComment;
    const std::size_t end = begin_ + opaque_.Pass(text_.substr(begin_), position_ - begin_, last_);
    position_ = end;
    if (blank_so_far_) begin_ = position_;
    if (opaque_.Kind() != Opaque::kNone) return false;
    if (line_comment) line_begin_ = position_;
    return true;
  }

  Step PassLetterD(std::string_view rest) {
    constexpr std::string_view kDelimiter = "delimiter";
    const std::size_t size = std::min(rest.size(), kDelimiter.size());
    if (!EqualIgnoringCase(rest.substr(0, size), kDelimiter.substr(0, size))) return PassOther();
    if (rest.size() <= kDelimiter.size()) return last_ ? PassOther() : Step::kWait;
    if (!IsBlank(rest[size])) return PassOther();
    in_delimiter_line_ = true;
    new_delimiter_.clear();
    delimiter_ends_ = false;
    position_ += size;
    begin_ = position_;
    return Step::kChanged;
  }

  // Keeps only the bytes of the line that the longest delimiter may have.
  bool PassDelimiterLine() {
    // The limit of MySQL's own client is 15 bytes.
    constexpr std::size_t kLongest = 64;
    const std::size_t end = std::min(text_.find('\n', position_), text_.size());
    for (; position_ < end && !delimiter_ends_; ++position_) {
      const char c = text_[position_];
      delimiter_ends_ = IsBlank(c) ? !new_delimiter_.empty() : new_delimiter_.size() > kLongest;
      if (!IsBlank(c)) new_delimiter_ += c;
    }
    position_ = begin_ = end;
    if (end == text_.size() && !last_) return false;
    in_delimiter_line_ = false;
    if (new_delimiter_.size() > kLongest) {
      CountLinesTo(std::max(counted_, end));
      delimiter_problem_ = "the delimiter in line " + std::to_string(line_) +
                           " is longer than 64 bytes and was ignored";
    } else if (!new_delimiter_.empty()) {
      SetDelimiter(new_delimiter_);
    }
    return true;
  }

  // Takes the end of a line, which ends a statement if the line is "GO" or "/".
  void PassLineEnd() {
    EndOwnLine(position_);
    line_begin_ = ++position_;
    if (blank_so_far_) begin_ = position_;
  }

  void EndOwnLine(std::size_t end) {
    if (!rules_.go_lines || line_begin_ == kNoPlace) return;
    const std::string_view line = Trimmed(text_.substr(line_begin_, end - line_begin_));
    if (line == "/" || EqualIgnoringCase(line, "go")) Finish(line_begin_, end);
  }

  // Ends the statement at the index `end`. The next one begins at the index `next`.
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

  // Drops the bytes of the statement that has begun, if it is too long. The last two are kept,
  // since they decide the meaning of a quote after them: E'it\'s'.
  void DropTooLong() noexcept {
    constexpr std::size_t kKept = 2;
    if (text_.size() - begin_ <= max_statement_ || position_ < begin_ + kKept) return;
    too_long_ = !blank_so_far_;
    begin_ = position_ - kKept;
  }

  void ResolveOpening() {
    const bool open = opaque_.Kind() != Opaque::kNone || opaque_.InExecutableComment();
    if (!open || opened_line_ != 0) return;
    CountLinesTo(opened_at_);
    opened_line_ = line_;
  }

  // Counts lines up to the index `end`. No byte is counted twice, even if many quotes begin.
  void CountLinesTo(std::size_t end) {
    const std::string_view lines = text_.substr(counted_, end - counted_);
    line_ += static_cast<std::uint64_t>(std::count(lines.begin(), lines.end(), '\n'));
    counted_ = end;
  }

  const DialectRules& rules_;
  OpaqueReader opaque_;
  const std::size_t max_statement_;
  std::string delimiter_;
  // The bytes that may have a meaning in code, such as quotes. All others are passed at once.
  std::array<bool, 256> stops_{};

  // Whether the first bytes of the statement that has begun are dropped.
  bool too_long_ = false;

  // The arguments of the current call of Split.
  std::string_view text_;
  bool last_ = false;
  Found* found_ = nullptr;

  bool in_delimiter_line_ = false;
  std::string new_delimiter_;
  bool delimiter_ends_ = false;
  std::string delimiter_problem_;
  // The index and the line at which the open quote or comment begins. The line is 0 if it is not
  // counted yet.
  std::size_t opened_at_ = 0;
  std::uint64_t opened_line_ = 0;
  // Whether the statement that has begun holds nothing but blanks and comments so far.
  bool blank_so_far_ = true;
  std::size_t begin_ = 0;
  std::size_t position_ = 0;
  // The index at which the line begins; kNoPlace if the line has a quote, a comment or a delimiter.
  std::size_t line_begin_ = 0;
  // The index up to which lines are counted, and the number of the line at it.
  std::size_t counted_ = 0;
  std::uint64_t line_ = 1;
};

}  // namespace

std::unique_ptr<Splitter> MakeSqlSplitter(const SplitterOptions& options) {
  return std::make_unique<SqlSplitter>(options);
}

}  // namespace tarn::host

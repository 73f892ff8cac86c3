#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "logs/formats.h"
#include "sql/dialect.h"
#include "sql/opaque.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

class SqlSplitter final : public Splitter {
 public:
  explicit SqlSplitter(Dialect dialect) : rules_(RulesOf(dialect)), opaque_(dialect) {
    SetDelimiter(";");
  }

  std::size_t Split(std::string_view text, bool last, Found& found) override {
    text_ = text;
    last_ = last;
    found_ = &found;
    // Each of the functions returns false if it needs a byte that has not arrived.
    while (opaque_.Kind() != Opaque::kNone ? PassOpaque()
           : new_delimiter_                ? PassDelimiterLine()
                                           : PassCode()) {
    }
    if (last) {
      if (opaque_.Kind() == Opaque::kNone) EndOwnLine(text.size());
      Finish(text.size(), text.size());
    }
    FindOpenedLine();
    if (last) ReportOpen();
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

 private:
  static constexpr std::size_t kNoPlace = std::string_view::npos;

  void SetDelimiter(std::string_view delimiter) {
    delimiter_ = delimiter;
    for (const char c : std::string_view("'\"-/")) StopAt(c);
    StopAt(delimiter_[0]);
    if (rules_.backquoted_names) StopAt('`');
    if (rules_.hash_comments) StopAt('#');
    if (rules_.executable_comments) StopAt('*');
    if (rules_.dollar_quotes) StopAt('$');
    if (rules_.go_lines) StopAt('\n');
  }

  void StopAt(char c) noexcept { stops_[static_cast<unsigned char>(c)] = true; }
  bool StopsAt(std::size_t at) const noexcept {
    return stops_[static_cast<unsigned char>(text_[at])];
  }

  bool PassCode() {
    while (position_ < text_.size()) {
      if (StopsAt(position_)) {
        if (!PassStop()) return false;
        if (opaque_.Kind() != Opaque::kNone) return true;
      } else if (blank_so_far_ && IsBlank(text_[position_])) {
        begin_ = ++position_;
      } else if (blank_so_far_ && rules_.delimiter_lines && Lower(text_[position_]) == 'd') {
        if (!PassLetterD()) return false;
        if (new_delimiter_) return true;
      } else {
        blank_so_far_ = false;
        do {
          ++position_;
        } while (position_ < text_.size() && !StopsAt(position_));
      }
    }
    return false;
  }

  // Takes the byte at the position as code without a meaning of its own.
  bool PassOther() noexcept {
    blank_so_far_ = false;
    ++position_;
    return true;
  }

  // Looks at the byte at which reading stopped.
  bool PassStop() {
    const std::string_view rest = text_.substr(position_);
    if (rest[0] == delimiter_[0] && !opaque_.InExecutableComment()) {
      if (!last_ && rest.size() < delimiter_.size() && delimiter_.starts_with(rest)) return false;
      if (rest.starts_with(delimiter_)) {
        line_begin_ = kNoPlace;
        Finish(position_, position_ + delimiter_.size());
        return true;
      }
    }
    if (rest[0] == '\n') {
      EndOwnLine(position_);
      line_begin_ = ++position_;
      if (blank_so_far_) begin_ = position_;
      return true;
    }
    const bool was_executable = opaque_.InExecutableComment();
    const std::size_t size = opaque_.Open(text_.substr(begin_), position_ - begin_, last_);
    if (size == OpaqueReader::kUndecided) return false;
    if (size == 0) return PassOther();
    line_begin_ = kNoPlace;
    const bool comment =
        opaque_.Kind() == Opaque::kLineComment || opaque_.Kind() == Opaque::kBlockComment;
    if (!comment) blank_so_far_ = false;
    if (!was_executable) {
      opened_at_ = position_;
      opened_line_ = 0;
    }
    position_ += size;
    return true;
  }

  bool PassOpaque() {
    const bool line_comment = opaque_.Kind() == Opaque::kLineComment;
    position_ = begin_ + opaque_.Pass(text_.substr(begin_), position_ - begin_, last_);
    if (blank_so_far_) begin_ = position_;
    if (opaque_.Kind() != Opaque::kNone) return false;
    if (line_comment) line_begin_ = position_;
    return true;
  }

  // Passes the word "delimiter" at the start of a line of its own, or else one letter.
  bool PassLetterD() {
    constexpr std::string_view kDelimiter = "delimiter";
    const std::string_view rest = text_.substr(position_);
    const std::string_view word = rest.substr(0, kDelimiter.size());
    if (!EqualIgnoringCase(word, kDelimiter.substr(0, word.size()))) return PassOther();
    if (rest.size() <= kDelimiter.size()) return last_ && PassOther();
    if (!IsBlank(rest[word.size()])) return PassOther();
    new_delimiter_.emplace();
    begin_ = position_ += word.size();
    return true;
  }

  // Keeps only the bytes of the line that the longest delimiter may have, and one more.
  bool PassDelimiterLine() {
    // The limit of MySQL's own client is 15 bytes.
    constexpr std::size_t kLongest = 64;
    const std::size_t end = std::min(text_.find('\n', position_), text_.size());
    for (; position_ < end; ++position_) {
      const char c = text_[position_];
      if (new_delimiter_->size() > kLongest || (new_delimiter_->empty() && IsBlank(c))) continue;
      *new_delimiter_ += c;
    }
    begin_ = end;
    if (end == text_.size() && !last_) return false;
    const std::string delimiter =
        new_delimiter_->substr(0, new_delimiter_->find_first_of(" \t\v\f\r"));
    new_delimiter_.reset();
    if (delimiter.size() > kLongest) {
      CountLinesTo(std::max(counted_, end));
      found_->summary.problem = "the delimiter in line " + std::to_string(line_) +
                                " is longer than 64 bytes and was ignored";
    } else if (!delimiter.empty()) {
      SetDelimiter(delimiter);
    }
    return true;
  }

  // Ends the statement before the line that ends at the index `end`, if the line is "GO" or "/".
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
      found_->Add(Trimmed(text_.substr(begin_, end - begin_)));
    }
    blank_so_far_ = true;
    begin_ = position_ = std::max(begin_, next);
  }

  // Drops the bytes of the statement that has begun, if it is too long. The last two are kept,
  // since they decide the meaning of a quote after them: E'it\'s'.
  void DropTooLong() noexcept {
    constexpr std::size_t kKept = 2;
    if (position_ - begin_ <= std::max(found_->max_statement, kKept)) return;
    too_long_ = true;
    begin_ = position_ - kKept;
  }

  // Counts the lines before the open quote or comment, while its opening mark is in the text.
  void FindOpenedLine() {
    const bool open = opaque_.Kind() != Opaque::kNone || opaque_.InExecutableComment();
    if (!open || opened_line_ != 0) return;
    CountLinesTo(opened_at_);
    opened_line_ = line_;
  }

  // Reports the quote or comment that is open at the end of the input.
  void ReportOpen() {
    const Opaque kind = opaque_.Kind();
    const bool comment = kind == Opaque::kBlockComment || opaque_.InExecutableComment();
    if (!comment && kind != Opaque::kText && kind != Opaque::kName) return;
    std::string& problem = found_->summary.problem;
    if (!problem.empty()) problem += "; ";
    problem += std::string("ends inside a ") + (comment ? "comment" : "quote") +
               " that begins in line " + std::to_string(opened_line_);
  }

  // Counts lines up to the index `end`. No byte is counted twice, even if many quotes begin.
  void CountLinesTo(std::size_t end) {
    const std::string_view lines = text_.substr(counted_, end - counted_);
    line_ += static_cast<std::uint64_t>(std::count(lines.begin(), lines.end(), '\n'));
    counted_ = end;
  }

  const DialectRules& rules_;
  OpaqueReader opaque_;
  std::string delimiter_;
  // The bytes that may have a meaning in code, such as quotes. All others are passed at once.
  std::array<bool, 256> stops_{};
  // The text after the word "delimiter", within a line that begins with it.
  std::optional<std::string> new_delimiter_;

  // The arguments of the current call of Split.
  std::string_view text_;
  bool last_ = false;
  Found* found_ = nullptr;

  // Whether the statement that has begun holds nothing but blanks and comments so far.
  bool blank_so_far_ = true;
  // Whether the first bytes of the statement that has begun are dropped.
  bool too_long_ = false;
  std::size_t begin_ = 0;
  std::size_t position_ = 0;
  // The index at which the line begins; kNoPlace if the line has a quote, a comment or a delimiter.
  std::size_t line_begin_ = 0;
  // The index and the line at which the open quote or comment begins. The line is 0 if it is not
  // counted yet.
  std::size_t opened_at_ = 0;
  std::uint64_t opened_line_ = 0;
  // The index up to which lines are counted, and the number of the line at it.
  std::size_t counted_ = 0;
  std::uint64_t line_ = 1;
};

}  // namespace

std::unique_ptr<Splitter> MakeSqlSplitter(const SplitterOptions& options) {
  return std::make_unique<SqlSplitter>(options.dialect);
}

}  // namespace tarn::host

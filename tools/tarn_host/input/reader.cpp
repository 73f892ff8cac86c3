#include "tarn_host/input/reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarn_host/errors.h"

namespace tarn::host {
namespace {

constexpr std::size_t kBlockSize = std::size_t{256} * 1024;

bool IsBlank(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

// The bytes at which reading SQL outside quotes and comments has to stop and look.
constexpr std::array<bool, 256> kSqlStops = [] {
  std::array<bool, 256> stops{};
  for (const char c : std::string_view(";'\"`-/")) stops[static_cast<unsigned char>(c)] = true;
  return stops;
}();

StatementFormat FormatNamed(std::string_view name) noexcept {
  if (name == "lines") return StatementFormat::kLines;
  return name == "nul" ? StatementFormat::kNul : StatementFormat::kSql;
}

}  // namespace

Input::Input(const std::string& file)
    : name_(file == kStandardInput ? "standard input" : file),
      fd_(file == kStandardInput ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (fd_ < 0) throw InputError(SystemReason(name_, errno));
}

Input::~Input() {
  if (fd_ != STDIN_FILENO) close(fd_);
}

std::size_t Input::Read(char* to, std::size_t size) {
  for (;;) {
    const ssize_t got = read(fd_, to, size);
    if (got >= 0) return static_cast<std::size_t>(got);
    if (errno != EINTR) throw InputError(SystemReason(name_, errno));
  }
}

std::string ReadAll(const std::string& file) {
  Input input(file);
  std::string all;
  std::vector<char> block(kBlockSize);
  while (const std::size_t got = input.Read(block.data(), block.size())) {
    all.append(block.data(), got);
  }
  return all;
}

// Finds the ends of statements in a text that arrives piece by piece.
class StatementReader::Splitter {
 public:
  explicit Splitter(StatementFormat format) noexcept : format_(format) {}

  // Adds the statements that end within `text` to `spans`. `text` begins with the begun statement
  // that the last call left, as Begun tells, followed by new bytes. `last` says that no more come.
  void Split(std::string_view text, bool last, std::vector<StatementBatch::Span>& spans) {
    switch (format_) {
      case StatementFormat::kSql:
        SplitSql(text, last, spans);
        break;
      case StatementFormat::kLines:
        SplitAt('\n', text, last, spans);
        break;
      case StatementFormat::kNul:
        SplitAt('\0', text, last, spans);
        break;
    }
  }

  // Where in the last text the begun statement starts.
  std::size_t Begun() const noexcept { return begun_; }

  // Tells that the next text begins with what Begun pointed at.
  void Rebase() noexcept {
    position_ -= begun_;
    begun_ = 0;
  }

  const char* Open() const noexcept {
    if (state_ == State::kBlockComment) return "comment";
    return quote_ != '\0' ? "quote" : nullptr;
  }

 private:
  enum class State { kText, kQuote, kLineComment, kBlockComment };

  void SplitAt(char separator, std::string_view text, bool last,
               std::vector<StatementBatch::Span>& spans) {
    for (;;) {
      const std::size_t end = text.find(separator, position_);
      if (end == std::string_view::npos) break;
      spans.push_back({begun_, end});
      begun_ = position_ = end + 1;
    }
    position_ = text.size();
    if (last && begun_ < text.size()) {
      spans.push_back({begun_, text.size()});
      begun_ = text.size();
    }
  }

  void SplitSql(std::string_view text, bool last, std::vector<StatementBatch::Span>& spans) {
    // Each of these stops short when it needs a byte that has not arrived.
    bool more = true;
    while (more) {
      switch (state_) {
        case State::kText:
          more = PassText(text, last, spans);
          break;
        case State::kQuote:
          more = PassQuote(text);
          break;
        case State::kLineComment:
          more = PassUpTo("\n", text);
          break;
        case State::kBlockComment:
          more = PassUpTo("*/", text);
          break;
      }
    }
    if (last) {
      position_ = text.size();
      Finish(text, position_, spans);
      begun_ = position_;
    }
  }

  bool PassText(std::string_view text, bool last, std::vector<StatementBatch::Span>& spans) {
    while (position_ < text.size()) {
      const char c = text[position_];
      if (blank_so_far_ && IsBlank(c)) {
        begun_ = ++position_;
      } else if (!kSqlStops[static_cast<unsigned char>(c)]) {
        blank_so_far_ = false;
        do {
          ++position_;
        } while (position_ < text.size() &&
                 !kSqlStops[static_cast<unsigned char>(text[position_])]);
      } else if (c == ';') {
        Finish(text, position_, spans);
        begun_ = ++position_;
      } else if (c == '-' || c == '/') {
        if (position_ + 1 == text.size() && !last) return false;
        const std::string_view two = text.substr(position_, 2);
        if (two == "--" || two == "/*") {
          position_ += 2;
          state_ = c == '-' ? State::kLineComment : State::kBlockComment;
          return true;
        }
        blank_so_far_ = false;
        ++position_;
      } else {
        blank_so_far_ = false;
        quote_ = c;
        state_ = State::kQuote;
        ++position_;
        return true;
      }
    }
    return false;
  }

  // A doubled quote closes and opens again, which comes to the same.
  bool PassQuote(std::string_view text) {
    const bool escapes = quote_ != '`';
    while (position_ < text.size()) {
      const char c = text[position_];
      if (c == '\\' && escapes) {
        if (position_ + 1 == text.size()) return false;
        position_ += 2;
      } else if (c == quote_) {
        ++position_;
        quote_ = '\0';
        state_ = State::kText;
        return true;
      } else {
        ++position_;
      }
    }
    return false;
  }

  bool PassUpTo(std::string_view end, std::string_view text) {
    const std::size_t found = text.find(end, position_);
    if (found == std::string_view::npos) {
      // The first bytes of `end` may be there already.
      const std::size_t keep = end.size() - 1;
      position_ = std::max(position_, text.size() - std::min(keep, text.size()));
      if (blank_so_far_) begun_ = position_;
      return false;
    }
    position_ = found + end.size();
    if (blank_so_far_) begun_ = position_;
    state_ = State::kText;
    return true;
  }

  void Finish(std::string_view text, std::size_t end, std::vector<StatementBatch::Span>& spans) {
    if (blank_so_far_) return;
    while (IsBlank(text[end - 1])) --end;
    spans.push_back({begun_, end});
    blank_so_far_ = true;
  }

  StatementFormat format_;
  State state_ = State::kText;
  // Which quote is open; NUL when none is.
  char quote_ = '\0';
  // Whether the begun statement has had nothing but blanks and comments.
  bool blank_so_far_ = true;
  std::size_t begun_ = 0;
  std::size_t position_ = 0;
};

StatementReader::StatementReader(const std::string& file, StatementFormat format,
                                 InputWaiter* waiter)
    : input_(file), waiter_(waiter), splitter_(std::make_unique<Splitter>(format)) {}

StatementReader::~StatementReader() = default;

bool StatementReader::Read(StatementBatch& batch) {
  batch.spans_.clear();
  batch.bytes_read_ = 0;
  if (batch.bytes_.size() < pending_.size() + kBlockSize) {
    batch.bytes_.resize(pending_.size() + kBlockSize);
  }
  std::size_t size = pending_.copy(batch.bytes_.data(), pending_.size());
  pending_.clear();

  while (batch.spans_.empty() && !at_end_) {
    // Doubling keeps the copying linear in the length of a long statement.
    if (size == batch.bytes_.size()) batch.bytes_.resize(2 * size);
    if (waiter_ != nullptr && !waiter_->Wait(input_.Fd())) {
      at_end_ = true;
      return false;
    }
    const std::size_t got = input_.Read(batch.bytes_.data() + size, batch.bytes_.size() - size);
    size += got;
    batch.bytes_read_ += got;
    at_end_ = got == 0;
    splitter_->Split({batch.bytes_.data(), size}, at_end_, batch.spans_);
  }

  const std::size_t begun = splitter_->Begun();
  pending_.assign(batch.bytes_.data() + begun, size - begun);
  splitter_->Rebase();
  batch.first_number_ = next_number_;
  next_number_ += batch.spans_.size();
  return !batch.spans_.empty();
}

const char* StatementReader::OpenAtEnd() const noexcept { return splitter_->Open(); }

void AddInputOption(CLI::App& command, StatementFormat& format) {
  command
      .add_option_function<std::string>(
          "--input", [&format](const std::string& name) { format = FormatNamed(name); },
          "How statements are separated: by semicolons (sql, the default), by newlines (lines) or "
          "by NUL bytes (nul)")
      ->check(CLI::IsMember({"sql", "lines", "nul"}))
      ->type_name("FORMAT");
}

void AddFilesArgument(CLI::App& command, std::vector<std::string>& files) {
  command.add_option("FILE", files, "Files of statements; standard input for \"-\" or none")
      ->type_name("");
}

std::vector<std::string> FilesOrStandardInput(const std::vector<std::string>& files) {
  return files.empty() ? std::vector<std::string>{kStandardInput} : files;
}

}  // namespace tarn::host

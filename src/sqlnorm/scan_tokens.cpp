#include "sqlnorm/scan_tokens.h"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

#include "sqlnorm/alias_table.h"
#include "sqlnorm/byte_block.h"
#include "sqlnorm/byte_class.h"

namespace tarn::sqlnorm {
namespace {

constexpr std::string_view kAliasStem = "____t";
constexpr std::string_view kFirstAlias = "____t1";

// Room for one canonical name and what a copy may write beyond its word.
constexpr std::size_t kRoomForWord = 48;

bool IsTwoCharacterOperator(const char* p) noexcept {
  return p[1] == '=' ? ClassOf(*p) == ByteClass::kAngle : (*p == '<' && p[1] == '>');
}

bool IsTokenAt(const char* p) noexcept {
  switch (ClassOf(*p)) {
    case ByteClass::kLetter:
    case ByteClass::kDigit:
    case ByteClass::kParenthesis:
    case ByteClass::kComma:
      return true;
    case ByteClass::kAngle:
      return IsTwoCharacterOperator(p);
    default:
      return false;
  }
}

// Whether, once tokens are spaced and runs of spaces are one blank, a blank follows `p`, which is just
// after a dot.
bool IsBlankAfter(const char* p) noexcept {
  const char* const next = SkipSpaces(p);
  return IsTokenAt(next) || next - p > 1 || (next - p == 1 && *p == ' ');
}

// The seven keywords, by their bytes in a machine word.
constexpr std::uint64_t Packed(std::string_view word) noexcept {
  std::uint64_t packed = 0;
  for (std::size_t i = 0; i < word.size(); ++i) {
    packed |= static_cast<std::uint64_t>(static_cast<unsigned char>(word[i])) << (8 * i);
  }
  return packed;
}

constexpr std::uint64_t kFoldCase = 0x2020202020202020;
constexpr std::uint64_t kInsert = Packed("insert");
constexpr std::uint64_t kDelete = Packed("delete");

// Whether a word, packed in lower case, is one of the keywords.
constexpr bool IsKeyword(std::uint64_t lower) noexcept {
  return lower == Packed("from") || lower == Packed("where") || lower == Packed("select") ||
         lower == Packed("update") || lower == Packed("values") || lower == kInsert ||
         lower == kDelete;
}

std::uint64_t Load(const char* p) noexcept {
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, p, sizeof bytes);
  return bytes;
}

// Copies `length` bytes, and up to 15 more than asked.
char* CopyLoosely(const char* from, std::size_t length, char* out) noexcept {
  constexpr std::size_t kBlock = 16;
  std::size_t copied = 0;
  do {
    std::memcpy(out + copied, from + copied, kBlock);
    copied += kBlock;
  } while (copied < length);
  return out + length;
}

// Reads tokens and writes them spaced. The members change with every byte: the scanner is a local
// object that is inlined as a whole, so that they live in registers.
class TokenScanner {
 public:
  TokenScanner(const char* text, std::size_t length, OutputBuffer& output, AliasTable& aliases)
      : in_(text), end_(text + length), output_(output), aliases_(aliases) {
    // A token of one byte takes two with its blank, and the first one a blank before it.
    output_.Reserve(2 * length + kRoomForWord, 0);
    begin_ = out_ = output_.Data();
  }

  // Returns the end of the text written.
  char* Run() {
    while (in_ != end_) {
      const ByteClass byte_class = ClassOf(*in_);
      if (byte_class == ByteClass::kLetter || byte_class == ByteClass::kDigit) {
        TakeName();
        continue;
      }
      switch (byte_class) {
        case ByteClass::kLetter:
        case ByteClass::kDigit:
          break;
        case ByteClass::kSpace:
          TakeSpaces();
          break;
        case ByteClass::kParenthesis:
          TakeToken(1);
          break;
        case ByteClass::kComma:
          TakeComma();
          break;
        case ByteClass::kDot:
          TakeDots();
          break;
        case ByteClass::kAngle:
          if (IsTwoCharacterOperator(in_)) {
            TakeToken(2);
          } else {
            TakeOther();
          }
          break;
        case ByteClass::kOther:
          TakeOther();
          break;
      }
    }
    return out_;
  }

 private:
  // A character that is no token keeps its place.
  void TakeOther() noexcept {
    *out_++ = *in_++;
    glued_ = false;
  }

  // Spaces next to a token are the token's affair; what stands between two other characters stays,
  // as one blank if it is a run.
  void TakeSpaces() noexcept {
    const char* const run = in_;
    in_ = SkipSpaces(in_);
    if (glued_ || IsTokenAt(in_)) return;
    *out_++ = in_ - run == 1 ? *run : ' ';
  }

  void BeginToken() noexcept {
    *out_ = ' ';
    out_ += glued_ ? 0 : 1;
  }

  void EndToken() noexcept {
    *out_++ = ' ';
    in_ += *in_ == ' ' ? 1 : 0;
    glued_ = true;
  }

  void TakeToken(std::size_t length) noexcept {
    BeginToken();
    for (; length != 0; --length) *out_++ = *in_++;
    EndToken();
  }

  // A comma between two blanks is attached to what precedes it, unless the first of them is the
  // blank behind another attached comma.
  void TakeComma() noexcept {
    BeginToken();
    const bool attach = out_[-1] == ' ' && out_ - begin_ != attached_;
    out_ -= attach ? 1 : 0;
    *out_++ = *in_++;
    EndToken();
    if (attach) attached_ = out_ - begin_;
  }

  // One or two dots between two blanks are joined to both sides.
  void TakeDots() noexcept {
    const char* after = in_ + 1;
    while (*after == '.') ++after;
    if (after - in_ <= 2 && out_ != begin_ && out_[-1] == ' ' && IsBlankAfter(after)) {
      if (out_ - begin_ == attached_) {
        // The blank was the comma's before it was the dot's: the comma is not attached after all.
        out_[-2] = ' ';
        out_[-1] = ',';
      } else {
        --out_;
      }
      do *out_++ = *in_++;
      while (in_ != after);
      in_ = SkipSpaces(after);
      glued_ = true;
    } else {
      do *out_++ = *in_++;
      while (in_ != after);
      glued_ = false;
    }
  }

  // A word, or several directly joined by single dots.
  void TakeName() {
    BeginToken();
    for (;;) {
      TakeWord();
      if (*in_ != '.' || !IsWord(in_[1])) break;
      *out_++ = *in_++;
    }
    EndToken();
  }

  void TakeWord() {
    if (IsDigit(*in_)) {
      const char* const digits_end = SkipDigits(in_ + 1);
      out_ = CopyLoosely(in_, static_cast<std::size_t>(digits_end - in_), out_);
      in_ = digits_end;
      if (!IsWord(*in_)) return;
      *out_++ = ' ';
    }
    const char* const word_end = SkipWord(in_ + 1);
    const auto length = static_cast<std::size_t>(word_end - in_);
    if (*in_ == 't' && IsDigit(in_[1]) && SkipDigits(in_ + 2) == word_end) {
      WriteAlias(aliases_.NumberOf({in_, length}));
      in_ = word_end;
      return;
    }
    constexpr std::size_t kShortestKeyword = 4;
    constexpr std::size_t kLongestKeyword = 6;
    if (length - kShortestKeyword <= kLongestKeyword - kShortestKeyword) {
      const std::uint64_t lower = (Load(in_) | kFoldCase) & (~std::uint64_t{0} >> (64 - 8 * length));
      if (IsKeyword(lower)) {
        const std::uint64_t upper = lower & ~kFoldCase;
        std::memcpy(out_, &upper, sizeof upper);
        out_ += length;
        in_ = word_end;
        if (lower == kInsert) SkipFollowingWord("into");
        if (lower == kDelete) SkipFollowingWord("from");
        return;
      }
    }
    out_ = CopyLoosely(in_, length, out_);
    in_ = word_end;
  }

  void SkipFollowingWord(const char (&lower)[5]) noexcept {
    const char* const word = SkipSpaces(in_);
    if (StandsAt(word, lower) && !IsWord(word[4])) in_ = word + 4;
  }

  void WriteAlias(std::uint32_t number) {
    const std::size_t used = static_cast<std::size_t>(out_ - begin_);
    const std::size_t needed = used + 2 * static_cast<std::size_t>(end_ - in_) + kRoomForWord;
    if (needed > output_.Capacity()) {
      output_.Reserve(needed + needed / 2, used);
      begin_ = output_.Data();
      out_ = begin_ + used;
    }
    std::memcpy(out_, kAliasStem.data(), kAliasStem.size());
    out_ += kAliasStem.size();
    if (number < 10) {
      *out_++ = static_cast<char>('0' + number);
      return;
    }
    out_ = std::to_chars(out_, out_ + std::numeric_limits<std::uint32_t>::digits10 + 1, number).ptr;
  }

  const char* in_;
  const char* const end_;
  OutputBuffer& output_;
  AliasTable& aliases_;
  char* begin_;
  char* out_;
  // The next token needs no blank before it: there is one, or a joined dot has taken it.
  bool glued_ = false;
  // Where the blank behind the comma that was attached last ends.
  std::ptrdiff_t attached_ = 0;
};

const char* FindFirstAlias(const char* p, const char* end) noexcept {
  return FindByBlock(p, end, [](const char* q) noexcept -> ByteBlock {
    return (LoadBlock(q) == '_') & (LoadBlock(q + 3) == '_') & (LoadBlock(q + 4) == 't') &
           (LoadBlock(q + 5) == '1') & (LoadBlock(q + 1) == '_') & (LoadBlock(q + 2) == '_');
  });
}

// Takes the one alias of a text out of qualified names and "AS" declarations, in place, and returns
// the text's new end. In such a text no two spaces follow each other.
char* StripSingleAlias(char* begin, char* end) noexcept {
  const char* pending = begin;  // the text from here on has been neither kept nor dropped
  char* out = begin;
  const char* rest = begin;
  for (;;) {
    const char* const name = FindFirstAlias(rest, end);
    if (name == end) break;
    const char* after = name + kFirstAlias.size();
    rest = after;
    if (name - pending < 1 || !IsSpace(name[-1]) || IsWord(*after)) continue;
    const char* start = name - 1;
    after = SkipSpaces(after);
    if (name - pending >= 4 && IsSpace(name[-4]) && StandsAt(name - 3, "as")) {
      start = name - 4;
    } else if (*after == '.') {
      after = SkipSpaces(after + 1);
    } else {
      continue;
    }
    std::memmove(out, pending, static_cast<std::size_t>(start - pending));
    out += start - pending;
    *out++ = ' ';
    pending = rest = after;
  }
  std::memmove(out, pending, static_cast<std::size_t>(end - pending));
  return out + (end - pending);
}

}  // namespace

std::string_view WriteTokens(const char* text, std::size_t length, OutputBuffer& output) {
  AliasTable aliases;
  char* end = TokenScanner(text, length, output, aliases).Run();
  char* begin = output.Data();
  if (aliases.Count() == 1) {
    std::memset(end, 0, kRoomForWord);
    end = StripSingleAlias(begin, end);
  }
  while (begin != end && IsSpace(*begin)) ++begin;
  while (begin != end && IsSpace(end[-1])) --end;
  return {begin, static_cast<std::size_t>(end - begin)};
}

}  // namespace tarn::sqlnorm

#include "sqlnorm/scan_tokens.h"

#include <array>
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

// Whether, once tokens are spaced and runs of spaces are one blank, a blank follows `p`, which is
// just after a dot.
bool IsBlankAfter(const char* p) noexcept {
  const char* const next = SkipSpaces(p);
  return IsTokenAt(next) || next - p > 1 || (next - p == 1 && *p == ' ');
}

// The first bytes of a word, the first one lowest.
constexpr std::uint64_t Packed(std::string_view word) noexcept {
  std::uint64_t packed = 0;
  for (std::size_t i = 0; i < word.size(); ++i) {
    packed |= static_cast<std::uint64_t>(static_cast<unsigned char>(word[i])) << (8 * i);
  }
  return packed;
}

constexpr std::uint64_t kFoldCase = 0x2020202020202020;
constexpr std::size_t kLetterMask = 0x1F;  // what tells letters of either case apart
constexpr std::size_t kShortestKeyword = 4;
constexpr std::size_t kLongestKeyword = 6;
constexpr std::uint64_t kInsert = Packed("insert");
constexpr std::uint64_t kDelete = Packed("delete");
constexpr std::uint64_t kFrom = Packed("from");
constexpr std::uint64_t kInto = Packed("into");

// The words that are written in capitals, by their initials, which all differ.
constexpr std::array<std::uint64_t, kLetterMask + 1> kKeywords = [] {
  std::array<std::uint64_t, kLetterMask + 1> keywords{};
  for (const std::uint64_t keyword : {kInsert, kDelete, Packed("select"), kFrom, Packed("update"),
                                      Packed("where"), Packed("values")}) {
    keywords[keyword & kLetterMask] = keyword;
  }
  return keywords;
}();

// The word of 1 to 8 bytes at `p`, packed, its letters in lower case.
std::uint64_t Lower(const char* p, std::size_t length) noexcept {
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, p, sizeof bytes);
  return (bytes | kFoldCase) & (~std::uint64_t{0} >> (64 - 8 * length));
}

// Copies the bytes from `from` to `end`, at least one, and up to 15 more. Returns the end of the
// copy.
char* CopyLoosely(const char* from, const char* end, char* out) noexcept {
  constexpr std::ptrdiff_t kBlock = 16;
  char* const out_end = out + (end - from);
  for (;;) {
    std::memcpy(out, from, kBlock);
    from += kBlock;
    if (from >= end) return out_end;
    out += kBlock;
  }
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
    FollowOther();
    while (in_ != end_) {
      switch (ClassOf(*in_)) {
        case ByteClass::kLetter:
        case ByteClass::kDigit:
          TakeName();
          break;
        case ByteClass::kSpace:
          in_ = SkipSpaces(in_);
          break;
        case ByteClass::kParenthesis:
          *out_++ = *in_++;
          FollowToken();
          break;
        case ByteClass::kComma:
          TakeComma();
          break;
        case ByteClass::kDot:
          TakeDots();
          break;
        case ByteClass::kAngle:
          if (IsTwoCharacterOperator(in_)) {
            *out_++ = *in_++;
            *out_++ = *in_++;
            FollowToken();
            break;
          }
          [[fallthrough]];
        case ByteClass::kOther:
          *out_++ = *in_++;
          FollowOther();
          break;
      }
    }
    return out_;
  }

 private:
  // Whatever follows a token, a blank does first, and the spaces that stood there go.
  void FollowToken() noexcept {
    *out_++ = ' ';
    if (*in_ == ' ') ++in_;
  }

  // Behind a character that is no token, or at the start: a blank if a token follows; otherwise the
  // spaces that stand there, as one blank if there are several.
  void FollowOther() noexcept {
    const char* const spaces = in_;
    in_ = SkipSpaces(in_);
    if (IsTokenAt(in_)) {
      *out_++ = ' ';
    } else if (in_ != spaces) {
      *out_++ = in_ - spaces == 1 ? *spaces : ' ';
    }
  }

  // A comma between two blanks is attached to what precedes it, unless the first of them is the
  // blank behind another attached comma.
  void TakeComma() noexcept {
    const bool attach = out_[-1] == ' ' && out_ - begin_ != attached_;
    if (attach) --out_;
    *out_++ = *in_++;
    FollowToken();
    if (attach) attached_ = out_ - begin_;
  }

  // One or two dots between two blanks are joined to both sides.
  void TakeDots() noexcept {
    const char* const dots = in_;
    do ++in_;
    while (*in_ == '.');
    const std::ptrdiff_t count = in_ - dots;
    const bool join = count <= 2 && out_ != begin_ && out_[-1] == ' ' && IsBlankAfter(in_);
    if (join) {
      --out_;
      if (out_ + 1 - begin_ == attached_) {
        // The blank was the comma's before it was the dot's: the comma is not attached after all.
        out_[-1] = ' ';
        *out_++ = ',';
      }
    }
    std::memset(out_, '.', static_cast<std::size_t>(count));
    out_ += count;
    if (join) {
      in_ = SkipSpaces(in_);
    } else {
      FollowOther();
    }
  }

  // A word, or several directly joined by single dots.
  void TakeName() {
    for (;;) {
      TakeWord();
      if (*in_ != '.' || !IsWord(in_[1])) break;
      *out_++ = *in_++;
    }
    FollowToken();
  }

  void TakeWord() {
    if (IsDigit(*in_)) {
      const char* const digits = in_;
      in_ = SkipDigits(in_ + 1);
      out_ = CopyLoosely(digits, in_, out_);
      if (!IsWord(*in_)) return;
      *out_++ = ' ';
    }
    const char* const word = in_;
    in_ = SkipWord(in_ + 1);
    const auto length = static_cast<std::size_t>(in_ - word);
    if (*word == 't' && IsDigit(word[1]) && SkipDigits(word + 2) == in_) {
      WriteAlias(aliases_.NumberOf({word, length}));
      return;
    }
    if (length - kShortestKeyword <= kLongestKeyword - kShortestKeyword) {
      const std::uint64_t lower = Lower(word, length);
      if (lower == kKeywords[lower & kLetterMask]) {
        TakeKeyword(lower, length);
        return;
      }
    }
    out_ = CopyLoosely(word, in_, out_);
  }

  void TakeKeyword(std::uint64_t lower, std::size_t length) noexcept {
    const std::uint64_t upper = lower & ~kFoldCase;
    std::memcpy(out_, &upper, sizeof upper);
    out_ += length;
    if (lower != kInsert && lower != kDelete) return;
    // INTO behind INSERT and FROM behind DELETE go.
    const char* const next = SkipSpaces(in_);
    if (Lower(next, 4) == (lower == kInsert ? kInto : kFrom) && !IsWord(next[4])) in_ = next + 4;
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

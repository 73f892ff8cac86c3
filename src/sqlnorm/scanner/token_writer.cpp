#include "sqlnorm/scanner/token_writer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

#include "sqlnorm/scanner/alias_table.h"
#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/byte_class.h"

namespace tarn::sqlnorm {
namespace {

constexpr std::string_view kAliasStem = "____t";
constexpr std::string_view kFirstAlias = "____t1";

// Room behind the text written: for what the search for a name reads there, and besides for one
// name and what a copy may write beyond its word.
constexpr std::size_t kSearchPadding = 32;
constexpr std::size_t kRoomForWord = kSearchPadding + 48;

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
constexpr std::uint64_t kInsert = Packed("insert");
constexpr std::uint64_t kDelete = Packed("delete");

// The words that are written in capitals, by their initials, which all differ.
constexpr std::array<std::uint64_t, kLetterMask + 1> kKeywords = [] {
  std::array<std::uint64_t, kLetterMask + 1> keywords{};
  for (const std::uint64_t keyword : {kInsert, kDelete, Packed("select"), Packed("from"),
                                      Packed("update"), Packed("where"), Packed("values")}) {
    keywords[keyword & kLetterMask] = keyword;
  }
  return keywords;
}();

// The initials of those that swallow a word behind them, as bits.
constexpr std::uint32_t kSwallowing = 1U << (kInsert & kLetterMask) | 1U << (kDelete & kLetterMask);

// Masks of the lowest bytes, by their number.
constexpr std::array<std::uint64_t, sizeof(std::uint64_t) + 1> kLowestBytes = [] {
  std::array<std::uint64_t, sizeof(std::uint64_t) + 1> masks{};
  for (std::size_t i = 1; i < masks.size(); ++i) masks[i] = masks[i - 1] << 8 | 0xFF;
  return masks;
}();

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

// Reads a text's elements, words and other characters, and writes them spaced: a token is followed
// by a blank, and by a blank only. The text is classified 64 bytes at a time; where elements begin
// and end is then read off bits, so that neither the length of words nor that of spaces costs a
// branch that can't be predicted.
//
// The members change with every element: the scanner is a local object that is inlined as a whole,
// so that they live in registers.
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
    std::uint64_t word_before = 0;  // whether the block's first byte may go on with a word
    for (const char* block = in_; block < end_; block += BlockClasses::kBytes) {
      const BlockClasses classes = ClassifyBlock(block);
      std::uint64_t begins =
          (classes.words & ~(classes.words << 1 | word_before)) | ~(classes.words | classes.spaces);
      word_before = classes.words >> 63;
      const bool digits_before_letters =
          (classes.digits << 1 & classes.words & ~classes.digits) != 0;
      if (end_ - block < static_cast<std::ptrdiff_t>(BlockClasses::kBytes)) {
        begins &= (std::uint64_t{1} << (end_ - block)) - 1;
      }
      for (; begins != 0; begins &= begins - 1) {
        const int at = std::countr_zero(begins);
        const char* const p = block + at;
        if (p < in_) continue;  // taken along with an earlier element
        if ((classes.words >> at & 1) == 0) {
          TakeOther(p);
          continue;
        }
        const std::uint64_t beyond = ~classes.words >> at;
        const char* word = p;
        const char* word_end = p + std::countr_zero(beyond);
        if (beyond == 0 || digits_before_letters) [[unlikely]] {
          word_end = SkipWord(p);
          word = TakeLeadingDigits(p, word_end);
        }
        TakeWord(word, word_end);
      }
    }
    return out_;
  }

 private:
  // What was taken last. TakeOther reckons with the values.
  enum Last : unsigned {
    kOther,          // no token: what follows may need a blank before it
    kToken,          // a token, and the blank behind it
    kAttachedComma,  // the same, the blank before it taken away
    kJoined,         // dots between two blanks that they took away
  };

  void TakeWord(const char* p, const char* end) {
    BeginToken();
    in_ = end;
    const auto length = static_cast<std::size_t>(end - p);
    if (*p == 't' && IsDigit(p[1]) && SkipDigits(p + 2) == end) {
      WriteAlias(aliases_.NumberOf({p, length}));
    } else {
      CopyLoosely(p, end, out_);
      // A keyword is written over the copy, in capitals, and any other word's begin once more as it
      // is: a branch here would be a toss-up.
      std::uint64_t bytes = 0;
      std::memcpy(&bytes, p, sizeof bytes);
      const std::uint64_t lower =
          (bytes | kFoldCase) & kLowestBytes[std::min(length, sizeof bytes)];
      const std::size_t initial = lower & kLetterMask;
      const bool is_keyword = lower == kKeywords[initial];
      bytes &= is_keyword ? ~kFoldCase : ~std::uint64_t{0};
      std::memcpy(out_, &bytes, sizeof bytes);
      out_ += length;
      if (is_keyword & ((kSwallowing >> initial & 1) != 0)) [[unlikely]] {
        SkipFollowing(lower == kInsert ? "into" : "from");
      }
    }
    EndToken();
  }

  // Digits before letters in one word become a word of their own. Returns where the rest begins.
  const char* TakeLeadingDigits(const char* p, const char* end) noexcept {
    const char* const digits_end = SkipDigits(p);
    if (digits_end == p || digits_end == end) return p;
    BeginToken();
    out_ = CopyLoosely(p, digits_end, out_);
    EndToken();
    return digits_end;
  }

  // A character that belongs to no word.
  void TakeOther(const char* p) noexcept {
    const ByteClass byte_class = ClassOf(*p);
    if (byte_class >= ByteClass::kDot) {
      TakeDotsOrAngle(p, byte_class);
      return;
    }
    const bool token = byte_class >= ByteClass::kParenthesis;
    BeginElement(p, token);
    // A comma between two blanks is attached to what precedes it, unless the first of them is the
    // blank behind another attached comma.
    const unsigned attach = unsigned{byte_class == ByteClass::kComma} & unsigned{last_ <= kToken};
    out_ -= attach;
    out_[0] = *p;
    out_[1] = ' ';
    out_ += 1 + unsigned{token};
    in_ = p + 1;
    last_ = unsigned{token} + attach;
  }

  void TakeDotsOrAngle(const char* p, ByteClass byte_class) noexcept {
    const bool token = byte_class == ByteClass::kAngle && IsTwoCharacterOperator(p);
    BeginElement(p, token);
    if (byte_class == ByteClass::kDot) {
      TakeDots(p);
      return;
    }
    *out_++ = *p++;
    if (token) {
      *out_++ = *p++;
      *out_++ = ' ';
    }
    in_ = p;
    last_ = token ? kToken : kOther;
  }

  void BeginToken() noexcept {
    *out_ = ' ';
    out_ += unsigned{last_ == kOther};
  }

  void EndToken() noexcept {
    *out_++ = ' ';
    last_ = kToken;
  }

  // What goes between the element before and the one at `p`: a blank before a token; otherwise the
  // spaces that stand there, as one blank if there are several. Behind a token there is a blank
  // already.
  void BeginElement(const char* p, bool token) noexcept {
    const std::ptrdiff_t spaces = p - in_;
    *out_ = (token | (spaces != 1)) ? ' ' : *in_;
    out_ += unsigned{last_ == kOther} & (unsigned{token} | unsigned{spaces != 0});
  }

  // One or two dots between two blanks are joined to both sides.
  void TakeDots(const char* p) noexcept {
    const char* after = p + 1;
    while (*after == '.') ++after;
    const std::ptrdiff_t count = after - p;
    const bool join = count <= 2 && out_ != begin_ && out_[-1] == ' ' && IsBlankAfter(after);
    if (join) {
      --out_;
      if (last_ == kAttachedComma) {
        // The blank was the comma's before it was the dot's: the comma is not attached after all.
        out_[-1] = ' ';
        *out_++ = ',';
      }
    }
    for (std::ptrdiff_t i = 0; i < count; ++i) *out_++ = '.';
    in_ = join ? SkipSpaces(after) : after;
    last_ = join ? kJoined : kOther;
  }

  // A word of four letters that goes if it follows.
  void SkipFollowing(const char (&lower)[5]) noexcept {
    const char* const next = SkipSpaces(in_);
    if (StandsAt(next, lower) && !IsWord(next[4])) in_ = next + 4;
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

  const char* in_;  // the end of what has been taken
  const char* const end_;
  OutputBuffer& output_;
  AliasTable& aliases_;
  char* begin_;
  char* out_;
  unsigned last_ = kOther;
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
    std::memset(end, 0, kSearchPadding);
    end = StripSingleAlias(begin, end);
  }
  while (begin != end && IsSpace(*begin)) ++begin;
  while (begin != end && IsSpace(end[-1])) --end;
  return {begin, static_cast<std::size_t>(end - begin)};
}

}  // namespace tarn::sqlnorm

#include "sqlnorm/scanner/token_writer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "sqlnorm/scanner/alias_number.h"
#include "sqlnorm/scanner/alias_table.h"
#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/byte_class.h"
#include "sqlnorm/scanner/elements.h"
#include "sqlnorm/scanner/keywords.h"

namespace tarn::sqlnorm {
namespace {

constexpr std::string_view kAliasStem = "____t";
constexpr std::string_view kFirstAlias = "____t1";

// Room behind the text written: for what the search for a name reads there, and besides for one
// name and what a copy may write beyond its word.
constexpr std::size_t kRoomForWord = kPadding + 48;

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

// Writes the elements that it is handed, spaced: a token is followed by a blank, and by a blank
// only.
//
// The members change with every element: the writer is a local object that is inlined as a whole,
// so that they live in registers. What is called out of line, the table of aliases, lies outside.
class TokenWriter {
 public:
  TokenWriter(Text text, OutputBuffer& output, AliasTable& aliases, AliasNumberPrinter& numbers)
      : text_end_(text.data + text.length), output_(output), aliases_(aliases), numbers_(numbers) {
    // A token of one byte takes two with its blank, and the first one a blank before it.
    output_.Reserve(2 * text.length + kRoomForWord, 0);
    begin_ = out_ = output_.Data();
  }

  // The elements' visitor.
  const char* Word(const char* p, const char* end) {
    return IsAlias(p, end) ? Alias(p, end) : OrdinaryWord(p, end);
  }
  const char* Sign(const char* p, const char* taken) noexcept {
    switch (ClassOf(*p)) {
      case ByteClass::kComma:
        return Comma(p);
      case ByteClass::kParenthesis:
        return Token(p, 1);
      case ByteClass::kDot:
        return Dots(p, taken);
      case ByteClass::kAngle:
        return Operator(p, taken);
      default:
        return Other(p, taken);
    }
  }

  // What has been written.
  char* Begin() const noexcept { return begin_; }
  char* End() const noexcept { return out_; }

 private:
  // What was written last.
  enum class Last {
    kNoToken,        // what follows may need a blank before it
    kToken,          // a token, and the blank behind it
    kAttachedComma,  // the same, and the comma took the blank before it away
    kJoinedDots,     // dots that took the blanks on both sides away
  };

  // The rules. Each writes what begins at `p` and returns up to where it has taken the text, which
  // was taken up to `taken` before.

  // Token spacing, here and in what follows: a blank before a token, unless there is one behind the
  // last, and a blank behind it.
  void BeginToken() noexcept {
    *out_ = ' ';
    out_ += last_ == Last::kNoToken ? 1 : 0;
  }
  void EndToken() noexcept {
    *out_++ = ' ';
    last_ = Last::kToken;
  }

  // Ends a word, and joins a dot directly between it and another word, the most frequent case of
  // Dots.
  const char* EndWord(const char* end) noexcept {
    if (*end != '.' || !IsWord(end[1])) {
      EndToken();
      return end;
    }
    *out_++ = '.';
    last_ = Last::kJoinedDots;
    return end + 1;
  }

  // A token of one or two signs.
  const char* Token(const char* p, std::size_t length) noexcept {
    BeginToken();
    out_[0] = p[0];
    out_[1] = p[1];
    out_ += length;
    EndToken();
    return p + length;
  }

  // INSERT keyword, DELETE keyword, SELECT keyword, FROM keyword, UPDATE keyword, WHERE keyword,
  // VALUES keyword.
  const char* OrdinaryWord(const char* p, const char* end) noexcept {
    BeginToken();
    CopyLoosely(p, end, out_);
    const auto length = static_cast<std::size_t>(end - p);
    const std::uint64_t start = LoadEight(p);
    if (const Keyword* const keyword = FindKeyword(start, length)) {
      StoreEight(ToUpper(start), out_);
      if (keyword->swallows != 0) end = SkipSwallowed(*keyword, end);
    }
    out_ += length;
    return EndWord(end);
  }

  // INSERT keyword, DELETE keyword: INTO and FROM go if they follow.
  static const char* SkipSwallowed(const Keyword& keyword, const char* end) noexcept {
    constexpr std::uint64_t kFourBytes = 0xFFFFFFFF;
    const char* const next = SkipSpaces(end);
    const bool follows = (ToLower(LoadEight(next)) & kFourBytes) == keyword.swallows;
    return follows && !IsWord(next[4]) ? next + 4 : end;
  }

  // Alias numbering.
  const char* Alias(const char* p, const char* end) {
    const std::uint32_t number = aliases_.NumberOf(p, end);
    MakeRoom(end);
    BeginToken();
    std::memcpy(out_, kAliasStem.data(), kAliasStem.size());
    out_ += kAliasStem.size();
    out_ = numbers_.Print(number, out_);
    return EndWord(end);
  }

  // Alone of all elements an alias may grow to more than twice its length and a blank: room for it,
  // and for all that stands behind `end`.
  void MakeRoom(const char* end) {
    const auto used = static_cast<std::size_t>(out_ - begin_);
    const std::size_t needed = used + 2 * static_cast<std::size_t>(text_end_ - end) + kRoomForWord;
    if (needed <= output_.Capacity()) return;
    output_.Reserve(needed + needed / 2, used);
    begin_ = output_.Data();
    out_ = begin_ + used;
  }

  // Comma attaching: a comma between two blanks follows what precedes it directly, unless the first
  // of them is the blank behind another attached comma.
  const char* Comma(const char* p) noexcept {
    const bool attach = last_ == Last::kNoToken || last_ == Last::kToken;
    if (last_ == Last::kToken) --out_;
    *out_++ = ',';
    EndToken();
    if (attach) last_ = Last::kAttachedComma;
    return p + 1;
  }

  // Dot joining: one or two dots between two blanks are joined to both sides.
  const char* Dots(const char* p, const char* taken) noexcept {
    Spaces(p, taken);
    const char* after = p + 1;
    while (*after == '.') ++after;
    const std::ptrdiff_t count = after - p;
    const bool join = count <= 2 && out_ != begin_ && out_[-1] == ' ' && IsBlankAfter(after);
    if (join) {
      --out_;
      if (last_ == Last::kAttachedComma) {
        // The blank was the comma's before it was the dot's: the comma is not attached after all.
        out_[-1] = ' ';
        *out_++ = ',';
      }
    }
    *out_++ = '.';
    if (count > 1) out_ = std::fill_n(out_, count - 1, '.');
    last_ = join ? Last::kJoinedDots : Last::kNoToken;
    return after;
  }

  // Of < > ! only what makes two characters is a token.
  const char* Operator(const char* p, const char* taken) noexcept {
    return IsTwoCharacterOperator(p) ? Token(p, 2) : Other(p, taken);
  }

  const char* Other(const char* p, const char* taken) noexcept {
    Spaces(p, taken);
    *out_++ = *p;
    last_ = Last::kNoToken;
    return p + 1;
  }

  // Whitespace collapse: the spaces before a sign at `p` that is no token, as one blank if there
  // are several. Behind a token there is a blank already.
  void Spaces(const char* p, const char* taken) noexcept {
    if (last_ != Last::kNoToken || p == taken) return;
    *out_++ = p - taken == 1 ? *taken : ' ';
  }

  const char* const text_end_;
  OutputBuffer& output_;
  AliasTable& aliases_;
  AliasNumberPrinter& numbers_;
  char* begin_;
  char* out_;
  Last last_ = Last::kNoToken;
};

ByteBlock MarkFirstAliases(const char* q) noexcept {
  return (LoadBlock(q) == '_') & (LoadBlock(q + 3) == '_') & (LoadBlock(q + 4) == 't') &
         (LoadBlock(q + 5) == '1') & (LoadBlock(q + 1) == '_') & (LoadBlock(q + 2) == '_');
}

// Single-alias stripping: takes the one alias of a padded text out of qualified names and "AS"
// declarations, in place, and returns the text's new end. In such a text no two spaces follow each
// other.
char* StripSingleAlias(char* begin, char* end) noexcept {
  char* out = begin;
  const char* kept = begin;  // the text from here on has been neither kept nor dropped
  const auto keep_up_to = [&](const char* p) {
    const auto count = static_cast<std::size_t>(p - kept);
    std::memmove(out, kept, count);
    out += count;
  };
  VisitMarks(begin, end, MarkFirstAliases, [&](const char* name) {
    const char* after = name + kFirstAlias.size();
    if (name == kept || !IsSpace(name[-1]) || IsWord(*after)) return after;
    const char* start = name - 1;
    after = SkipSpaces(after);
    if (name - kept >= 4 && IsSpace(name[-4]) && StandsAt(name - 3, "as")) {
      start = name - 4;
    } else if (*after == '.') {
      after = SkipSpaces(after + 1);
    } else {
      return after;
    }
    keep_up_to(start);
    *out++ = ' ';
    kept = after;
    return after;
  });
  keep_up_to(end);
  return out;
}

}  // namespace

std::string_view WriteTokens(Text text, OutputBuffer& output) {
  AliasTable aliases(text.data + text.length);
  AliasNumberPrinter numbers;
  TokenWriter writer(text, output, aliases, numbers);
  VisitElements(text.data, text.length, writer);
  const char* begin = writer.Begin();
  const char* end = writer.End();
  if (aliases.Count() == 1) {
    Pad(writer.End());
    end = StripSingleAlias(writer.Begin(), writer.End());
  }
  // Leading trim, trailing trim.
  while (begin != end && IsSpace(*begin)) ++begin;
  while (begin != end && IsSpace(end[-1])) --end;
  return {begin, static_cast<std::size_t>(end - begin)};
}

}  // namespace tarn::sqlnorm

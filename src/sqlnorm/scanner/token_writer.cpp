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

// Free bytes required after the text written: the padding that StripSingleAlias reads, one alias
// with its blanks, and the bytes that CopyLoosely may write after its word.
constexpr std::size_t kSpaceForWord = kPadding + 48;
static_assert(kSpaceForWord >= kPadding + 1 + kAliasStem.size() + kMostAliasNumber + 1 + 16);

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

// Whether a blank follows the dot before `p` once tokens are spaced and white space is collapsed.
//   a.b  ->  a . b    yes: a token follows
//   a.*  ->  a .*     no
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

// Writes the elements that it visits, spaced: exactly one blank follows each token.
//
// The members change with every element. The writer is a local object whose functions are all
// inlined, so the compiler keeps the members in registers. The table and the printer of aliases
// have functions that are not inlined, so they are objects of their own.
class TokenWriter {
 public:
  TokenWriter(Text text, OutputBuffer& output, AliasTable& aliases, AliasNumberPrinter& numbers)
      : text_end_(text.data + text.length), output_(output), aliases_(aliases), numbers_(numbers) {
    // A token of one byte takes two with its blank, and the first one a blank before it.
    output_.Reserve(2 * text.length + kSpaceForWord, 0);
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

  // The text written so far.
  char* Begin() const noexcept { return begin_; }
  char* End() const noexcept { return out_; }

 private:
  // The last element written.
  enum class Last {
    kNoToken,        // no token, or none yet: a token that follows needs a blank before it
    kToken,          // a token and the blank after it
    kAttachedComma,  // a comma that removed the blank before it, and the blank after it
    kJoinedDots,     // dots that removed the blanks on both sides
  };

  // The rules. Each writes the part that begins at `p` and returns the position up to which it has
  // taken the text. Before the call, the text was taken up to `taken`.

  // Token spacing, for all kinds of tokens: a blank before a token, unless the last element wrote
  // one after it, and a blank after it.
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

  // Writes a word, in capitals if it is a keyword: INSERT keyword, DELETE keyword, SELECT keyword,
  // FROM keyword, UPDATE keyword, WHERE keyword, VALUES keyword.
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

  // INSERT keyword, DELETE keyword: a following INTO or FROM is dropped.
  static const char* SkipSwallowed(const Keyword& keyword, const char* end) noexcept {
    constexpr std::uint64_t kFourBytes = 0xFFFFFFFF;
    const char* const next = SkipSpaces(end);
    const bool follows = (ToLower(LoadEight(next)) & kFourBytes) == keyword.swallows;
    return follows && !IsWord(next[4]) ? next + 4 : end;
  }

  // Alias numbering.
  const char* Alias(const char* p, const char* end) {
    const std::uint32_t number = aliases_.NumberOf(p, end);
    ReserveForAlias(end);
    BeginToken();
    std::memcpy(out_, kAliasStem.data(), kAliasStem.size());
    out_ += kAliasStem.size();
    out_ = numbers_.Print(number, out_);
    return EndWord(end);
  }

  // Reserves space for an alias that ends at `end` and for all elements after it. No other element
  // grows to more than twice its length and a blank.
  void ReserveForAlias(const char* end) {
    const auto used = static_cast<std::size_t>(out_ - begin_);
    const std::size_t needed = used + 2 * static_cast<std::size_t>(text_end_ - end) + kSpaceForWord;
    if (needed <= output_.Capacity()) return;
    // A few aliases before much other text must not cost as much again for that text.
    output_.Reallocate(needed + used / 2, used);
    begin_ = output_.Data();
    out_ = begin_ + used;
  }

  // Comma attaching: a comma between two blanks loses the first, unless that is the blank after
  // another attached comma.
  //   a , b  ->  a, b        a , , b  ->  a, , b
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
        // Dots are joined before commas are attached, so this blank is gone when commas are
        // attached: the comma keeps the blank before it.
        //   a , . b  ->  a ,.b
        out_[-1] = ' ';
        *out_++ = ',';
      }
    }
    *out_++ = '.';
    if (count > 1) out_ = std::fill_n(out_, count - 1, '.');
    last_ = join ? Last::kJoinedDots : Last::kNoToken;
    return after;
  }

  // != >= <= <> are tokens; a single < > ! is not.
  const char* Operator(const char* p, const char* taken) noexcept {
    return IsTwoCharacterOperator(p) ? Token(p, 2) : Other(p, taken);
  }

  const char* Other(const char* p, const char* taken) noexcept {
    Spaces(p, taken);
    *out_++ = *p;
    last_ = Last::kNoToken;
    return p + 1;
  }

  // Whitespace collapse, before a sign at `p` that is no token: several spaces become one blank,
  // and a single one stays as it is. After a token there is a blank already.
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

// Single-alias stripping: removes the one alias of a padded text from qualified names and "AS"
// declarations, in place, and returns the text's new end. Requires: no two spaces follow each
// other.
//   SELECT ____t1.a FROM tab AS ____t1  ->  SELECT a FROM tab
char* StripSingleAlias(char* begin, char* end) noexcept {
  char* out = begin;
  const char* kept = begin;  // the text before it has been copied or dropped
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
    if (name - kept >= 4 && IsSpace(name[-4]) && HasLettersAt(name - 3, "as")) {
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

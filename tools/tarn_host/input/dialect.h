#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace tarn::host {

// Whose SQL it is: what bounds quotes, comments and statements.
//
// kMysql: ' and " quote texts, in which a backslash takes the next character with it, and ` names;
//   comments are "-- ", "#" and /* */, while /*! ... */ is code. A line "DELIMITER x" makes x end
//   the statements that follow.
// kAnsi: ' quotes texts and " names, without escapes; comments are "--" and /* */. "GO" and "/" on
//   a line of their own end a statement as a semicolon does.
// kPostgres: as kAnsi but for those lines; in E'...' a backslash escapes, $tag$ ... $tag$ quotes,
//   and comments nest.
//
// A doubled quote stands for itself in all of them.
enum class Dialect { kMysql, kAnsi, kPostgres };

// The dialects by the names that a person gives them.
const std::map<std::string, Dialect>& Dialects();

inline bool IsBlank(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr bool IsDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// ASCII alone.
constexpr char Lower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline constexpr std::array<bool, 256> kWordBytes = [] {
  std::array<bool, 256> word{};
  for (std::size_t byte = 0; byte < word.size(); ++byte) {
    const char lower = Lower(static_cast<char>(byte));
    word[byte] = (lower >= 'a' && lower <= 'z') || IsDigit(lower) || lower == '_' || lower == '$' ||
                 byte >= 0x80;
  }
  return word;
}();

// A letter, a digit, "_", "$", or a byte of a character beyond ASCII.
inline bool IsWord(char c) noexcept { return kWordBytes[static_cast<unsigned char>(c)]; }

// Whether the product takes `c` for part of a word, whoever's SQL it is.
inline bool IsProductWord(char c) noexcept {
  return IsWord(c) && c != '$' && static_cast<unsigned char>(c) < 0x80;
}

// `text` without blanks at its ends.
std::string_view Trimmed(std::string_view text) noexcept;

// Letters beyond ASCII are compared as they are.
bool EqualIgnoringCase(std::string_view a, std::string_view b) noexcept;

// Whether a comment that the line's end ends begins with `rest`, which may end behind "--".
bool BeginsLineComment(std::string_view rest, Dialect dialect) noexcept;

// Whether `rest` begins with what looks like a comment, but is code to MySQL or MariaDB.
bool BeginsExecutableComment(std::string_view rest, Dialect dialect) noexcept;

// The size of the dollar quote's opening tag that `rest` begins with, 0 when it is none, or
// kUnfinishedTag when more bytes must tell.
inline constexpr std::size_t kUnfinishedTag = std::string_view::npos;
std::size_t DollarTagSize(std::string_view rest) noexcept;

}  // namespace tarn::host

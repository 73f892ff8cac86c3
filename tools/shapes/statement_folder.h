#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "sql/dialect.h"

namespace tarn::host {

// Makes the statements meet that a person would call the same. Around the product's call:
//
//   std::string text = folder.Fold(statement);   // what is to be normalized
//   product.NormalizeSQL(text);
//   StatementFolder::ShowPlaces(text);           // the shape
//
// Beyond what the canonical text unites, a shape leaves out:
//   - values: numbers with their signs, quoted texts of every spelling, NULL, TRUE and FALSE where
//     a value may stand (IS NULL keeps its words), the parameters ?, @p0, :name and $1. Each shows
//     as "?".
//   - the length of a list in parentheses that holds such values alone, or such lists: "?, ...".
//   - the rows of VALUES behind the first, and what follows the rows where the product drops it
//     when there are several: their number does not matter,
//   - comments, spacing, the case of words that are not quoted, a last semicolon.
//
// All else stays, quoted names as they are written. The values become words before the product is
// called, since its rules ask for words: it takes the parentheses of (a = 1) away, but not those of
// (a = ?). The folder takes them away wherever they are about such a group itself: in ((a = 1)) the
// product keeps a pair, but writes that as it does (a = 1 ).
//
// Takes time linear in the statement. Not thread-safe.
class StatementFolder {
 public:
  explicit StatementFolder(Dialect dialect);

  // Valid until the next call.
  const std::string& Fold(std::string_view statement);

  // Shows the words that stand for values as "?" and ", ...". `canonical` is a folded text or what
  // the product made of it.
  static void ShowPlaces(std::string& canonical);

 private:
  // What the last token was, as far as the next one's meaning hangs on it.
  enum class Last { kNothing, kWord, kName, kValue, kDot, kSign, kClose };
  // The words behind which NULL, TRUE and FALSE are no values.
  enum class Behind { kOther, kIs, kIsNot, kNot, kSet };
  // What is due in a group of comparisons in parentheses, such as (a.b = c and d >= e); kNone when
  // there is none.
  enum class Group { kNone, kLeft, kOperator, kRight, kAnd };
  // How far the rows of a VALUES are.
  enum class Rows { kNone, kExpected, kWithin, kBehind, kComma };

  // What is open: a pair of parentheses, or the statement itself.
  struct Level {
    // Where in the text the parenthesis is.
    std::size_t begin = 0;
    Group group = Group::kNone;
    // Whether there are nothing but values, parted by commas, so far; whether one is due.
    bool list = true;
    bool value_due = true;
    // Where in the text the first value ends; 0 before.
    std::size_t first_end = 0;
    Rows rows = Rows::kNone;
    // Where in the text the first row ends; 0 before.
    std::size_t first_row_end = 0;
    // Whether the product drops what stands behind several rows of these.
    bool rows_cut = false;
    // Whether VALUES may be a function here, as in b = VALUES(a).
    bool call = false;
    // Whether a pair of parentheses is within.
    bool nested = false;

    // A value, or a list of values, ends at `end`.
    void AddElement(std::size_t end) noexcept;
  };

  std::size_t Token(std::size_t at);
  std::size_t Comment(std::size_t at);
  std::size_t Quote(std::size_t at, char quote, bool escapes);
  std::size_t Word(std::size_t at);
  std::size_t Number(std::size_t at);
  std::size_t Colon(std::size_t at);
  std::size_t AtSign(std::size_t at);
  std::size_t Dollar(std::size_t at);
  std::size_t PlusMinus(std::size_t at);
  std::size_t EndOfQuote(std::size_t at, char quote, bool escapes) const;
  std::size_t EndOfWord(std::size_t at) const;

  void AddSign(std::string_view sign);
  void AddWord(std::string_view word, Last kind);
  void AddValue();
  void Dot();
  void Open();
  void Close();
  void CloseGroup(std::size_t begin);
  void Comma();
  void BeforeOther();
  void FlushPending();
  void Append(std::string_view token);
  static Group NextInGroup(Group due, std::string_view token);
  bool IsValueWord(std::string_view word) const;
  bool OperandBefore() const;
  std::string_view LastWord() const;

  Dialect dialect_;
  std::string_view sql_;
  std::string text_;
  std::vector<Level> levels_;
  Last last_ = Last::kNothing;
  Behind behind_ = Behind::kOther;
  std::size_t last_word_begin_ = 0;
  // Signs that belong to a value if one follows.
  std::string pending_signs_;
  bool pending_semicolon_ = false;
  bool in_executable_comment_ = false;
};

}  // namespace tarn::host

#pragma once

#include <map>
#include <string>
#include <string_view>

namespace tarn::host {

// Whose SQL it is, as far as quotes, comments and the ends of statements depend on it. DialectRules
// has the differences.
//
// kMysql: ' and " quote texts, in which a backslash takes the next character with it, and ` names;
//   comments are "-- ", "#" and /* */, while /*! ... */ is code. A line "DELIMITER x" makes x end
//   the statements that follow.
// kAnsi: ' quotes texts and " names, without escapes; comments are "--" and /* */. "GO" and "/" on
//   a line of their own end a statement as a semicolon does.
// kPostgres: as kAnsi but for those lines; in E'...' a backslash escapes, $tag$ ... $tag$ quotes,
//   and comments nest.
//
// A doubled quote represents itself in all of them.
enum class Dialect { kMysql, kAnsi, kPostgres };

// A new dialect is an enumerator and a row of the table in dialect.cpp.
struct DialectRules {
  const char* name;

  // Quotes.
  bool double_quoted_texts = false;  // "a" is a text, not a name
  bool backquoted_names = false;     // `a`
  bool backslash_escapes = false;    // 'it\'s'
  bool escape_prefix = false;        // E'it\'s'
  bool dollar_quotes = false;        // $tag$it's$tag$
  bool unicode_prefix = false;       // U&'\0061', U&"\0061"
  bool character_sets = false;       // _utf8'a'

  // Comments.
  bool hash_comments = false;        // # to the line's end
  bool spaced_dashes = false;        // "-- " begins a comment, "5--1" is an expression
  bool executable_comments = false;  // /*!40101 code */, /*M! code */
  bool nested_comments = false;      // /* /* */ */

  // Numbers and words.
  bool grouped_digits = false;   // 1_000_000
  bool value_is_values = false;  // INSERT INTO o VALUE (1), (2)

  // Ends of statements.
  bool delimiter_lines = false;  // DELIMITER //
  bool go_lines = false;         // GO, or /, on a line of its own
};

// Of static storage duration.
const DialectRules& RulesOf(Dialect dialect) noexcept;

// The dialects by the names that a person gives them.
const std::map<std::string, Dialect>& Dialects();

}  // namespace tarn::host

#pragma once

#include <map>
#include <string>
#include <string_view>

namespace tarn::host {

// A dialect of SQL. The dialects differ in quotes, in comments and in the ends of statements:
//
// kMysql: ' and " quote texts, in which a backslash escapes the next character, and ` quotes names.
//   Comments are "-- ", "#" and /* */, but /*! ... */ is code. After a line "DELIMITER //" the
//   statements end with "//".
// kAnsi: ' quotes texts and " quotes names, without escapes. Comments are "--" and /* */. A line
//   "GO" or "/" ends a statement as a semicolon does.
// kPostgres: as kAnsi, but without such lines. In E'...' a backslash escapes, $tag$ ... $tag$
//   quotes a text, and comments nest.
//
// In each of them a doubled quote is one quote within the text: 'it''s'.
enum class Dialect { kMysql, kAnsi, kPostgres };

// The differences between the dialects. A new dialect needs an enumerator and a row of the table in
// dialect.cpp.
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

  // Differences in numbers and words.
  bool grouped_digits = false;   // 1_000_000
  bool variables = false;        // @total, @@version
  bool value_is_values = false;  // INSERT INTO o VALUE (1), (2)

  // Ends of statements.
  bool delimiter_lines = false;  // DELIMITER //
  bool go_lines = false;         // GO, or /, on a line of its own
};

// Valid until the process ends. Any thread may call it.
const DialectRules& RulesOf(Dialect dialect) noexcept;

// The dialects by the names with which a person chooses them: "mysql". Any thread may call it.
const std::map<std::string, Dialect>& Dialects();

}  // namespace tarn::host

#pragma once

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

// Whether a comment that the line's end ends begins with `rest`, which may end behind "--".
bool BeginsLineComment(std::string_view rest, Dialect dialect) noexcept;

// Whether `rest` begins with what looks like a comment, but is code to MySQL or MariaDB.
bool BeginsExecutableComment(std::string_view rest, Dialect dialect) noexcept;

// The size of the dollar quote's opening tag that `rest` begins with, 0 when it is none, or
// kUnfinishedTag when more bytes must tell.
inline constexpr std::size_t kUnfinishedTag = std::string_view::npos;
std::size_t DollarTagSize(std::string_view rest) noexcept;

}  // namespace tarn::host

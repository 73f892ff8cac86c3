#include "sqlnorm/scanner/scanner_engine.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/byte_class.h"
#include "sqlnorm/scanner/groups.h"
#include "sqlnorm/scanner/literals.h"
#include "sqlnorm/scanner/survey.h"
#include "sqlnorm/scanner/text_buffer.h"
#include "sqlnorm/scanner/token_writer.h"

namespace tarn::sqlnorm {
namespace {

// Quoted-statement unwrapping: the part of a statement between double quotes at both of its ends,
// without the spaces after the first. Any other statement stays as it is.
//   " a "  ->  a and a blank
std::string_view Unquote(const std::string& sql) noexcept {
  const char* const first = SkipSpaces(sql.c_str());
  if (*first != '"') return sql;
  const char* const last = SkipSpacesBack(first, sql.c_str() + sql.size()) - 1;
  if (last == first || *last != '"') return sql;
  const char* const begin = SkipSpaces(first + 1);
  return {begin, static_cast<std::size_t>(last - begin)};
}

// Writes the canonical text of `statement` to `output`. The buffers of all texts in between are
// released when it returns.
std::string_view Normalize(std::string_view statement, OutputBuffer& output) {
  WorkingBuffer source;
  source.Reserve(statement.size() + kPadding, 0);
  std::memcpy(source.Data(), statement.data(), statement.size());
  Pad(source.Data() + statement.size());

  Text text{source.Data(), statement.size()};
  const Survey survey = SurveyText(text);
  if (survey.row_end != nullptr) CutAfterFirstRow(text, survey.row_end);
  WorkingBuffer reprinted;
  if (survey.first_literal != nullptr) {
    text = CanonicalizeLiterals(text, survey.first_literal, reprinted);
  }
  if (survey.Groups()) RewriteGroups(text, survey);
  return WriteTokens(text, output);
}

}  // namespace

std::string_view NormalizeInto(const std::string& sql, OutputBuffer& output) {
  return Normalize(Unquote(sql), output);
}

std::string NormalizeByScanner(const std::string& sql) {
  OutputBuffer output;
  return std::string(NormalizeInto(sql, output));
}

}  // namespace tarn::sqlnorm

#include "sqlnorm/scanner/scanner_engine.h"

#include <algorithm>
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

// Quoted-statement unwrapping: what is left of a statement that is wholly enclosed in double
// quotes: what stands between the first and the last, without the spaces behind the first. Any
// other statement stays as it is.
std::string_view Unquote(std::string_view sql) noexcept {
  constexpr std::string_view kSpaces = " \t\n\v\f\r";
  const std::size_t first = sql.find_first_not_of(kSpaces);
  if (first == std::string_view::npos || sql[first] != '"') return sql;
  const std::size_t last = sql.find_last_not_of(kSpaces);
  if (last == first || sql[last] != '"') return sql;
  const std::string_view inner = sql.substr(first + 1, last - first - 1);
  const std::size_t begin = inner.find_first_not_of(kSpaces);
  return inner.substr(std::min(begin, inner.size()));
}

}  // namespace

std::string NormalizeByScanner(const std::string& sql) {
  const std::string_view statement = Unquote(sql);
  WorkingBuffer source;
  source.Reserve(statement.size() + kPadding, 0);
  std::memcpy(source.Data(), statement.data(), statement.size());
  Pad(source.Data() + statement.size());

  Text text{source.Data(), statement.size()};
  const Survey survey = SurveyText(text);
  WorkingBuffer reprinted;
  if (survey.first_literal != nullptr) {
    text = CanonicalizeLiterals(text, survey.first_literal, reprinted);
  }
  if (survey.Groups()) RewriteGroups(text, survey);
  OutputBuffer output;
  return std::string(WriteTokens(text, output));
}

}  // namespace tarn::sqlnorm

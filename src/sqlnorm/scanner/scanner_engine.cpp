#include "sqlnorm/scanner/scanner_engine.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "sqlnorm/scanner/byte_class.h"
#include "sqlnorm/scanner/groups.h"
#include "sqlnorm/scanner/literals.h"
#include "sqlnorm/scanner/token_writer.h"

namespace tarn::sqlnorm {
namespace {

// What is left of a statement that is wholly enclosed in double quotes: what stands between the
// first and the last, without the spaces behind the first. Any other statement stays as it is.
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
  std::size_t length = statement.size();
  WorkingBuffer working;
  working.Reserve(length + kPadding, 0);
  std::memcpy(working.Data(), statement.data(), length);
  std::memset(working.Data() + length, 0, kPadding);

  length = CanonicalizeLiterals(working, length);
  length = RewriteGroups(working.Data(), length);
  OutputBuffer output;
  return std::string(WriteTokens(working.Data(), length, output));
}

}  // namespace tarn::sqlnorm

// Opaque parts of SQL are quotes and comments. A sign within them has no meaning: ';' ends nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "sql/dialect.h"

namespace tarn::host {

enum class Opaque : unsigned char { kNone, kText, kName, kLineComment, kBlockComment };

// Finds the ends of opaque parts of a text that may arrive in pieces. Call Open where a part may
// begin, and then Pass until the part ends.
//
// The two marks of MySQL's executable comments, /*!40101 ... */, are parts of their own, which end
// at once, since the bytes between them are code.
//
// An Open takes constant time, and all calls of Pass take time linear in the bytes. Not
// thread-safe.
class OpaqueReader {
 public:
  explicit OpaqueReader(Dialect dialect) noexcept : rules_(&RulesOf(dialect)) {}

  // Open returns it if the bytes after the text decide: "/" may begin a comment.
  static constexpr std::size_t kUndecided = std::string_view::npos;

  // Opens the part that begins at text[at]. Returns the size of its opening mark, or 0 if no part
  // begins there. The text must have the two bytes before, which may decide: E in E'...', a in
  // a$b$. If `last`, no bytes come after the text.
  //
  // Requires: `at` is within the text; no part is open.
  std::size_t Open(std::string_view text, std::size_t at, bool last);

  // Looks for the end of the open part from text[at] on. If the part ends in the text, closes it
  // and returns the index after its end. Otherwise returns the index from which the next call has
  // to go on, which is the end of the text if `last`.
  //
  // Requires: a part is open, and `at` is the index after its opening mark or the last call's
  // result.
  std::size_t Pass(std::string_view text, std::size_t at, bool last);

  // The kind of the open part, or kNone. An executable comment is no open part.
  Opaque Kind() const noexcept { return kind_; }
  bool InExecutableComment() const noexcept { return in_executable_; }

 private:
  std::size_t Begin(Opaque kind, std::string_view end, std::size_t size, char other);
  std::size_t BeginDollarQuote(std::string_view text, std::size_t at, bool last);

  const DialectRules* rules_;
  Opaque kind_ = Opaque::kNone;
  bool in_executable_ = false;
  // The mark that ends the part.
  std::string end_;
  // The first byte of the mark's other meaning: "\\" where it escapes, "/" where comments nest.
  // Otherwise the first byte of end_.
  char other_ = '\0';
  // The number of comments that are open within one another, and 1 in a quote.
  std::uint64_t depth_ = 0;
};

}  // namespace tarn::host

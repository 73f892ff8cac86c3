// The parts of SQL in which its signs mean nothing: quotes and comments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "sql/dialect.h"

namespace tarn::host {

enum class Opaque : unsigned char { kNone, kText, kName, kLineComment, kBlockComment };

// Reads opaque parts of a text that may arrive in pieces: Open where one may begin, and Pass until
// it is over.
//
// The marks of MySQL's executable comments, /*!40101 ... */, are opened and over at once, since
// there is code between them.
//
// Takes constant time for an Open and time linear in the bytes for all calls of Pass.
class OpaqueReader {
 public:
  explicit OpaqueReader(Dialect dialect) noexcept : rules_(&RulesOf(dialect)) {}

  // Returned by Open when bytes that are still to come decide.
  static constexpr std::size_t kUndecided = std::string_view::npos;

  // Opens the part that begins at text[at]. Returns the size of its opening mark, 0 when no part
  // begins there. The two bytes before may matter: E in E'...', a in a$b$. `last`: no bytes follow
  // the text.
  //
  // Requires: `at` is within the text; no part is open.
  std::size_t Open(std::string_view text, std::size_t at, bool last);

  // Reads on in the open part. Returns the place after its end, the part being closed then, or the
  // place to go on from when more bytes are there. When none are, that is the end of the text.
  //
  // Requires: a part is open, and `at` is after its opening mark or as the last call returned it.
  std::size_t Pass(std::string_view text, std::size_t at, bool last);

  // The kind of the open part; kNone also between the marks of an executable comment.
  Opaque Kind() const noexcept { return kind_; }
  bool InExecutableComment() const noexcept { return in_executable_; }

 private:
  std::size_t OpenQuote(std::string_view text, std::size_t at);
  std::size_t OpenComment(std::string_view rest, bool last);
  std::size_t OpenDollarQuote(std::string_view text, std::size_t at, bool last);
  std::size_t PassQuote(std::string_view text, std::size_t at, bool last);
  std::size_t PassBlockComment(std::string_view text, std::size_t at);
  std::size_t PassUpTo(std::string_view end, std::string_view text, std::size_t at);

  const DialectRules* rules_;
  Opaque kind_ = Opaque::kNone;
  // '\0' in a dollar quote.
  char quote_ = '\0';
  bool escapes_ = false;
  bool in_executable_ = false;
  std::uint64_t depth_ = 0;
  std::string dollar_tag_;
};

}  // namespace tarn::host

#include "logs/packet.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <string_view>

#include "logs/formats.h"
#include "sql/dialect.h"
#include "sql/lexer.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

bool IsOneOf(std::string_view word, const auto& words) {
  return std::any_of(words.begin(), words.end(),
                     [word](std::string_view one) { return EqualIgnoringCase(word, one); });
}

// Whether semicolons may be within the statement, for example in the body of CREATE PROCEDURE.
bool HasBody(std::string_view statement) {
  static constexpr std::array<std::string_view, 2> kVerbs{"create", "alter"};
  static constexpr std::array<std::string_view, 5> kRoutines{"procedure", "function", "trigger",
                                                             "event", "package"};
  static constexpr std::array<std::string_view, 2> kOthers{"table", "view"};
  Lexer lexer(statement, Dialect::kMysql);
  const std::string_view verb = lexer.Next().text;
  // BEGIN NOT ATOMIC begins a block, other forms a transaction.
  if (EqualIgnoringCase(verb, "begin")) return EqualIgnoringCase(lexer.Next().text, "not");
  if (!IsOneOf(verb, kVerbs)) return false;
  // A definer may come before the kind: CREATE DEFINER=`a;b`@`%` PROCEDURE
  for (Token token = lexer.Next(); token.kind != TokenKind::kEnd; token = lexer.Next()) {
    if (token.Is(';') || IsOneOf(token.text, kOthers)) return false;
    if (IsOneOf(token.text, kRoutines)) return true;
  }
  return false;
}

}  // namespace

void SplitPacket(std::string_view packet, Found& found,
                 const std::function<void(std::string_view)>& take) {
  // A packet has one statement in practice. Without a limit a batch would grow with the semicolons
  // of a hostile one.
  constexpr std::size_t kMostStatements = 1'000;
  // Only the splitter drops a comment before a statement.
  constexpr std::string_view kComments = "/-#";
  if (packet.empty()) return;
  const bool one =
      packet.find(';') >= packet.size() - 1 && kComments.find(packet[0]) == std::string_view::npos;
  if (one || HasBody(packet)) {
    if (packet.ends_with(';')) packet.remove_suffix(1);
    if (!packet.empty()) take(Trimmed(packet));
    return;
  }
  const auto splitter = MakeSqlSplitter({});
  constexpr std::size_t kPiece = std::size_t{64} * 1024;
  Found parts;
  std::size_t done = 0;
  for (std::size_t end = 0; end < packet.size() && parts.statements.size() <= kMostStatements;) {
    end = std::min(packet.size(), end + kPiece);
    done += splitter->Split(packet.substr(done, end - done), end == packet.size(), parts);
  }
  if (parts.statements.size() > kMostStatements) {
    ++found.summary.damaged;
    parts.statements.resize(kMostStatements);
  }
  for (const FoundStatement& part : parts.statements) take(part.text);
}

}  // namespace tarn::host

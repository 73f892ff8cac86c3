#include "support/compare_engines.h"

#include <boost/lexical_cast/bad_lexical_cast.hpp>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "sqlnorm/patterns/pattern_engine.h"
#include "sqlnorm/scanner/scanner_engine.h"

namespace tarn::test {
namespace {

// An engine's result: "=" and the text, or the exception's kind and message.
std::string Ending(std::string (*engine)(const std::string&), const std::string& sql) {
  try {
    return '=' + engine(sql);
  } catch (const boost::bad_lexical_cast& error) {
    return std::string("bad_lexical_cast: ") + error.what();
  } catch (const std::runtime_error& error) {
    return std::string("runtime_error: ") + error.what();
  }
}

// `text` as an argument of printf(1) that prints the same bytes, including NUL bytes.
std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c < ' ' || c > '~' || c == '\'' || c == '\\' || c == '%') {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\%03o",
                    static_cast<unsigned>(static_cast<unsigned char>(c)));
      quoted += escape;
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

}  // namespace

Comparison CompareEngines(const std::string& sql) {
  const std::string patterns =
      Ending([](const std::string& text) { return sqlnorm::NormalizeByPatterns(text); }, sql);
  const std::string scanner = Ending(sqlnorm::NormalizeByScanner, sql);
  if (patterns.starts_with("runtime_error")) return {Outcome::kPatternsGaveUp, ""};
  if (patterns == scanner) return {Outcome::kSame, ""};
  return {Outcome::kDifferent, "engines differ on: printf " + Quoted(sql) +
                                   " | tarn_host trace; patterns " + Quoted(patterns) +
                                   ", scanner " + Quoted(scanner)};
}

void Tally::Compare(const std::string& sql) {
  constexpr long kMostPrinted = 20;
  ++compared_;
  const Comparison comparison = CompareEngines(sql);
  if (comparison.outcome == Outcome::kPatternsGaveUp) ++gave_up_;
  if (comparison.outcome != Outcome::kDifferent || ++different_ > kMostPrinted) return;
  std::fprintf(stderr, "%s\n", comparison.line.c_str());
}

bool Tally::AllSame() const {
  std::printf("%ld statements, %ld different, %ld on which the patterns gave up\n", compared_,
              different_, gave_up_);
  return compared_ > 0 && different_ == 0;
}

}  // namespace tarn::test

#include "support/compare_engines.h"

#include <boost/lexical_cast/bad_lexical_cast.hpp>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "sqlnorm/patterns/pattern_engine.h"
#include "sqlnorm/scanner/scanner_engine.h"

namespace tarn::test {
namespace {

// How an engine ended: a text, or an exception of the kind named.
struct Ending {
  std::string exception;
  std::string text;

  bool operator==(const Ending&) const = default;
};

template <typename Engine>
Ending Run(Engine engine, const std::string& sql) {
  try {
    return {"", engine(sql)};
  } catch (const boost::bad_lexical_cast& error) {
    return {"bad_lexical_cast", error.what()};
  } catch (const std::runtime_error& error) {
    return {"runtime_error", error.what()};
  }
}

std::string Described(const Ending& ending) {
  return ending.exception.empty() ? Quoted(ending.text) : ending.exception;
}

}  // namespace

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

Comparison CompareEngines(const std::string& sql) {
  const Ending patterns =
      Run([](const std::string& text) { return sqlnorm::NormalizeByPatterns(text); }, sql);
  const Ending scanner = Run(sqlnorm::NormalizeByScanner, sql);
  if (patterns.exception == "runtime_error") return {Outcome::kPatternsGaveUp, ""};
  if (patterns == scanner) return {Outcome::kSame, ""};
  return {Outcome::kDifferent, "engines differ on: printf " + Quoted(sql) +
                                   " | tarn_host trace; patterns " + Described(patterns) +
                                   ", scanner " + Described(scanner)};
}

}  // namespace tarn::test

#include "support/compare_roads.h"

#include <boost/lexical_cast/bad_lexical_cast.hpp>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "sqlnorm/pattern_road.h"
#include "sqlnorm/scanner_road.h"

namespace tarn::testing {
namespace {

// How a road ended: a text, or an exception of the kind named.
struct Ending {
  std::string exception;
  std::string text;

  bool operator==(const Ending&) const = default;
};

template <typename Road>
Ending Run(Road road, const std::string& sql) {
  try {
    return {"", road(sql)};
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
  std::string quoted = "$'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (c < ' ' || c > '~') {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02x",
                    static_cast<unsigned>(static_cast<unsigned char>(c)));
      quoted += escape;
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

Comparison CompareRoads(const std::string& sql) {
  const Ending patterns =
      Run([](const std::string& text) { return sqlnorm::NormalizeByPatterns(text); }, sql);
  const Ending scanner = Run(sqlnorm::NormalizeByScanner, sql);
  if (patterns.exception == "runtime_error") return {Outcome::kPatternsGaveUp, ""};
  if (patterns == scanner) return {Outcome::kSame, ""};
  return {Outcome::kDifferent, "roads differ on " + Quoted(sql) + ": patterns " +
                                   Described(patterns) + ", scanner " + Described(scanner)};
}

}  // namespace tarn::testing

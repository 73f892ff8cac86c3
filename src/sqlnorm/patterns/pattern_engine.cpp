#include "sqlnorm/patterns/pattern_engine.h"

#include <array>
#include <boost/lexical_cast.hpp>
#include <boost/regex.hpp>
#include <cstddef>
#include <ios>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <utility>

namespace tarn::sqlnorm {
namespace {

using boost::regex_constants::icase;
using boost::regex_constants::literal;
using boost::regex_constants::perl;

// Positions in NormalizerPatterns.
enum PatternPosition : std::size_t {
  QuotedStatementPattern,
  DecimalLiteralPattern,
  HexLiteralPattern,
  ComparisonGroupPattern,
  NegatedInListPattern,
  ParameterListPattern,
  MultiRowValuesPattern,
  NumberLetterPattern,
  TokenSpacingPattern,
  WhitespaceRunPattern,
  InsertKeywordPattern,
  DeleteKeywordPattern,
  SelectKeywordPattern,
  FromKeywordPattern,
  UpdateKeywordPattern,
  WhereKeywordPattern,
  ValuesKeywordPattern,
  TableAliasPattern,
  FirstAliasPattern,
  SpacedDotPattern,
  SpacedCommaPattern,
  LeadingSpacePattern,
  TrailingSpacePattern,
  PatternCount,
};

// Compiled once, in this order, when the library is loaded, and destroyed in reverse when it is
// unloaded. Read-only in between: any number of threads may match against one pattern.
const std::array<boost::regex, PatternCount> NormalizerPatterns{{
    boost::regex(R"re(\A\s*"\s*(.*)\s*"\s*\Z)re", perl),
    boost::regex(R"(\b\d+\.\d+([Ee][+-]?\d+)?\b)", perl),
    boost::regex(R"(\b0[xX][0-9a-fA-F]{1,8}\b)", perl),
    boost::regex(R"(\((\s*(\w+\.)?\w+\s*(=|>=|<=|>|<|!=)\s*(\w+\.)?\w+)"
                 R"((\s+and\s+(\w+\.)?\w+\s*(=|>=|<=|>|<|!=)\s*(\w+\.)?\w+)*)\))",
                 perl | icase),
    boost::regex(R"(\bNOT\s*\(\s*((?:\w+\.)?\w+)\s+IN\s*\(([^()]+)\)\s*\))", perl | icase),
    boost::regex(R"(\(\s*@\s*p\d+(\s*,\s*@\s*p\d+)*\s*\))", perl),
    boost::regex(R"((\bVALUES\s*\([^)]+\))\s*,.*)", perl | icase),
    boost::regex(R"(\b(\d+)([_A-Za-z]))", perl),
    boost::regex(R"(\s*?(\b\w+\b|[(),]|!=|>=|<=|<>)\s*)", perl),
    boost::regex(R"(\s\s+)", perl),
    boost::regex(R"(\bINSERT(\s+INTO)?\b)", perl | icase),
    boost::regex(R"(\bDELETE(\s+FROM)?\b)", perl | icase),
    boost::regex(R"(\bSELECT\b)", perl | icase),
    boost::regex(R"(\bFROM\b)", perl | icase),
    boost::regex(R"(\bUPDATE\b)", perl | icase),
    boost::regex(R"(\bWHERE\b)", perl | icase),
    boost::regex(R"(\bVALUES\b)", perl | icase),
    boost::regex(R"(\bt\d+\b)", perl),
    boost::regex(R"(\s+____t1\b\s*\.\s*|\s+[Aa][Ss]\s+____t1\b\s*)", perl),
    boost::regex(R"( (\.\.?) )", perl),
    boost::regex(R"( , )", literal),
    boost::regex(R"(\A\s*)", perl),
    boost::regex(R"(\s*\Z)", perl),
}};

bool ClassesAreClassic(const std::locale& locale) {
  boost::regex_traits<char> seen;
  boost::regex_traits<char> classic;
  seen.imbue(locale);
  classic.imbue(std::locale::classic());
  for (int byte = 0; byte <= std::numeric_limits<unsigned char>::max(); ++byte) {
    const char c = static_cast<char>(byte);
    if (seen.translate_nocase(c) != classic.translate_nocase(c)) return false;
    for (const char* name : {"w", "s", "d"}) {
      if (seen.isctype(c, seen.lookup_classname(name, name + 1)) !=
          classic.isctype(c, classic.lookup_classname(name, name + 1))) {
        return false;
      }
    }
  }
  return true;
}

const bool classes_are_classic = ClassesAreClassic(NormalizerPatterns[0].getloc());

// The text that the steps rewrite, and the number that the next alias gets.
struct WorkingText {
  std::string text;
  int next_alias = 1;
};

// Replaces every match of `pattern` by what `print` makes of it. Matches are sought in a snapshot;
// counted from the end, their positions hold however the earlier replacements changed the length.
template <typename Print>
void ReprintMatches(std::string& text, const boost::regex& pattern, Print print) {
  const std::string snapshot = text;
  const boost::sregex_token_iterator end;
  for (boost::sregex_token_iterator match(snapshot.begin(), snapshot.end(), pattern, 0);
       match != end; ++match) {
    const auto from_end = static_cast<std::size_t>(snapshot.end() - match->first);
    const auto length = static_cast<std::size_t>(match->length());
    text.replace(text.size() - from_end, length, print(match->str()));
  }
}

void ReprintDecimalLiterals(WorkingText& working) {
  ReprintMatches(
      working.text, NormalizerPatterns[DecimalLiteralPattern], [](const std::string& literal_text) {
        return boost::lexical_cast<std::string>(boost::lexical_cast<double>(literal_text));
      });
}

void ReprintHexLiterals(WorkingText& working) {
  ReprintMatches(working.text, NormalizerPatterns[HexLiteralPattern],
                 [](const std::string& literal_text) {
                   std::stringstream stream;
                   unsigned long long value = 0;
                   stream << std::hex << literal_text;
                   stream >> value;
                   stream.str("");
                   stream.clear();
                   std::string decimal;
                   stream << std::dec << value;
                   stream >> decimal;
                   return decimal;
                 });
}

// Numbers the aliases by first appearance. A canonical name never looks like an alias, since the
// "t" in it follows a word character, so each round removes one alias for good.
void NumberAliases(WorkingText& working) {
  boost::smatch match;
  while (boost::regex_search(working.text, match, NormalizerPatterns[TableAliasPattern])) {
    const boost::regex alias_pattern("\\b" + match.str() + "\\b");
    const std::string canonical_name =
        "____t" + boost::lexical_cast<std::string>(working.next_alias);
    working.text = boost::regex_replace(working.text, alias_pattern, canonical_name);
    ++working.next_alias;
  }
}

// One step: a replacement of all matches of `pattern` by `format`, unless `rewrite` says otherwise.
struct Step {
  const char* name;
  PatternPosition pattern;
  const char* format;
  void (*rewrite)(WorkingText&) = nullptr;
  bool only_with_single_alias = false;
};

constexpr std::array<Step, kStepCount> kSteps{{
    {"quoted-statement unwrapping", QuotedStatementPattern, "$1"},
    {"decimal-literal canonicalization", DecimalLiteralPattern, nullptr, ReprintDecimalLiterals},
    {"hexadecimal-literal conversion", HexLiteralPattern, nullptr, ReprintHexLiterals},
    {"comparison-group unwrapping", ComparisonGroupPattern, " $1 "},
    {"negated IN-list rewrite", NegatedInListPattern, "$1 NOT IN ($2)"},
    {"parameter-list removal", ParameterListPattern, ""},
    {"multi-row VALUES truncation", MultiRowValuesPattern, "$1"},
    {"digit-letter split", NumberLetterPattern, "$1 $2"},
    {"token spacing", TokenSpacingPattern, " $1 "},
    {"whitespace collapse", WhitespaceRunPattern, " "},
    {"INSERT keyword", InsertKeywordPattern, "INSERT"},
    {"DELETE keyword", DeleteKeywordPattern, "DELETE"},
    {"SELECT keyword", SelectKeywordPattern, "SELECT"},
    {"FROM keyword", FromKeywordPattern, "FROM"},
    {"UPDATE keyword", UpdateKeywordPattern, "UPDATE"},
    {"WHERE keyword", WhereKeywordPattern, "WHERE"},
    {"VALUES keyword", ValuesKeywordPattern, "VALUES"},
    {"dot joining", SpacedDotPattern, "$1"},
    {"comma attaching", SpacedCommaPattern, ", "},
    {"alias numbering", TableAliasPattern, nullptr, NumberAliases},
    {"single-alias stripping", FirstAliasPattern, " ", nullptr, true},
    {"leading trim", LeadingSpacePattern, ""},
    {"trailing trim", TrailingSpacePattern, ""},
}};

void Apply(const Step& step, WorkingText& working) {
  const bool single_alias = working.next_alias == 2;
  if (step.only_with_single_alias && !single_alias) return;
  if (step.rewrite != nullptr) {
    step.rewrite(working);
  } else {
    working.text =
        boost::regex_replace(working.text, NormalizerPatterns[step.pattern], step.format);
  }
}

}  // namespace

bool PatternsSawClassicClasses() noexcept { return classes_are_classic; }

std::string NormalizeByPatterns(const std::string& sql, StepObserver* observer) {
  return RunSteps(sql, 1, kStepCount, observer);
}

std::string RunSteps(std::string text, int first, int last, StepObserver* observer) {
  WorkingText working{std::move(text)};
  for (int number = first; number <= last; ++number) {
    const Step& step = kSteps[static_cast<std::size_t>(number - 1)];
    Apply(step, working);
    if (observer != nullptr) observer->AfterStep(number, step.name, working.text);
  }
  return std::move(working.text);
}

}  // namespace tarn::sqlnorm

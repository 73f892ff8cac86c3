#include "sqlnorm/patterns/pattern_engine.h"

#include <array>
#include <boost/lexical_cast.hpp>
#include <boost/regex.hpp>
#include <boost/throw_exception.hpp>
#include <cstddef>
#include <ios>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>
#include <typeinfo>
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

// A pattern and the name of its rewrite step.
struct PatternDefinition {
  const char* step;
  std::string_view text;
  boost::regex::flag_type options;
};

// In the order of PatternPosition.
constexpr std::array<PatternDefinition, PatternCount> kDefinitions{{
    {"quoted-statement unwrapping", R"re(\A\s*"\s*(.*)\s*"\s*\Z)re", perl},
    {"decimal-literal canonicalization", R"(\b\d+\.\d+([Ee][+-]?\d+)?\b)", perl},
    {"hexadecimal-literal conversion", R"(\b0[xX][0-9a-fA-F]{1,8}\b)", perl},
    {"comparison-group unwrapping",
     R"(\((\s*(\w+\.)?\w+\s*(=|>=|<=|>|<|!=)\s*(\w+\.)?\w+)"
     R"((\s+and\s+(\w+\.)?\w+\s*(=|>=|<=|>|<|!=)\s*(\w+\.)?\w+)*)\))",
     perl | icase},
    {"negated IN-list rewrite", R"(\bNOT\s*\(\s*((?:\w+\.)?\w+)\s+IN\s*\(([^()]+)\)\s*\))",
     perl | icase},
    {"parameter-list removal", R"(\(\s*@\s*p\d+(\s*,\s*@\s*p\d+)*\s*\))", perl},
    {"multi-row VALUES truncation", R"((\bVALUES\s*\([^)]+\))\s*,.*)", perl | icase},
    {"digit-letter split", R"(\b(\d+)([_A-Za-z]))", perl},
    {"token spacing", R"(\s*?(\b\w+\b|[(),]|!=|>=|<=|<>)\s*)", perl},
    {"whitespace collapse", R"(\s\s+)", perl},
    {"INSERT keyword", R"(\bINSERT(\s+INTO)?\b)", perl | icase},
    {"DELETE keyword", R"(\bDELETE(\s+FROM)?\b)", perl | icase},
    {"SELECT keyword", R"(\bSELECT\b)", perl | icase},
    {"FROM keyword", R"(\bFROM\b)", perl | icase},
    {"UPDATE keyword", R"(\bUPDATE\b)", perl | icase},
    {"WHERE keyword", R"(\bWHERE\b)", perl | icase},
    {"VALUES keyword", R"(\bVALUES\b)", perl | icase},
    {"alias numbering", R"(\bt\d+\b)", perl},
    {"single-alias stripping", R"(\s+____t1\b\s*\.\s*|\s+[Aa][Ss]\s+____t1\b\s*)", perl},
    {"dot joining", R"( (\.\.?) )", perl},
    {"comma attaching", R"( , )", literal},
    {"leading trim", R"(\A\s*)", perl},
    {"trailing trim", R"(\s*\Z)", perl},
}};

// Compiles the patterns in order. All of them use `locale`, even if another thread changes the
// global locale meanwhile.
std::array<boost::regex, PatternCount> CompileAll(const std::locale& locale) {
  std::array<boost::regex, PatternCount> patterns;
  for (std::size_t position = 0; position < PatternCount; ++position) {
    const auto& [step, text, options] = kDefinitions.at(position);
    patterns.at(position).imbue(locale);
    patterns.at(position).assign(text.data(), text.data() + text.size(), options);
  }
  return patterns;
}

// Compiled once, when the library is loaded, and destroyed in reverse order when it is unloaded.
// Read-only in between: any number of threads may match against one pattern.
const std::array<boost::regex, PatternCount> NormalizerPatterns = CompileAll(std::locale());

// Whether \w, \s, \d and a letter's lower case are the same as under the classic locale. The facets
// are asked directly: Boost's traits would create a cache, whose destructor would run at unload.
bool ClassesAreClassic(const std::locale& locale) {
  using Ctype = std::ctype<char>;
  const auto& seen = std::use_facet<Ctype>(locale);
  const auto& classic = std::use_facet<Ctype>(std::locale::classic());
  for (int byte = 0; byte <= std::numeric_limits<unsigned char>::max(); ++byte) {
    const char c = static_cast<char>(byte);
    if (seen.tolower(c) != classic.tolower(c)) return false;
    for (const Ctype::mask mask : {Ctype::alnum, Ctype::space, Ctype::digit}) {
      // The underscore belongs to \w under any locale.
      const bool always = mask == Ctype::alnum && c == '_';
      if (!always && seen.is(mask, c) != classic.is(mask, c)) return false;
    }
  }
  return true;
}

const bool classes_are_classic = ClassesAreClassic(NormalizerPatterns.front().getloc());

// The text that the steps rewrite, and the number that the next alias gets.
struct WorkingText {
  std::string text;
  int next_alias = 1;
};

// Replaces every match of `pattern` by the result of `print`. Matches are searched in a snapshot.
// Their positions are counted from the end, so they stay valid after earlier replacements have
// changed the length.
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

// A stream that uses the classic locale, whatever the global one is.
template <typename Stream>
Stream Classic() {
  Stream stream;
  stream.imbue(std::locale::classic());
  // Throw if memory runs out, since that is no failed conversion.
  stream.exceptions(std::ios_base::badbit);
  return stream;
}

double ParseDecimal(const std::string& literal_text) {
  auto stream = Classic<std::istringstream>();
  stream.str(literal_text);
  double value = 0;
  // Fails for a value beyond the range of double; a value too small for it is 0. Bytes remain in
  // the stream if the patterns' locale has digits that the classic one has not.
  if (stream >> value && stream.get() == std::istringstream::traits_type::eof()) return value;
  boost::throw_exception(boost::bad_lexical_cast(typeid(std::string), typeid(double)));
}

std::string ReprintDecimal(const std::string& literal_text) {
  auto stream = Classic<std::ostringstream>();
  stream.precision(std::numeric_limits<double>::max_digits10);
  stream << ParseDecimal(literal_text);
  return std::move(stream).str();
}

std::string ReprintHex(const std::string& literal_text) {
  auto stream = Classic<std::stringstream>();
  unsigned long long value = 0;
  stream << std::hex << literal_text;
  stream >> value;
  stream.str("");
  stream.clear();
  std::string decimal;
  stream << std::dec << value;
  stream >> decimal;
  return decimal;
}

void ReprintDecimalLiterals(WorkingText& working) {
  ReprintMatches(working.text, NormalizerPatterns[DecimalLiteralPattern], ReprintDecimal);
}

void ReprintHexLiterals(WorkingText& working) {
  ReprintMatches(working.text, NormalizerPatterns[HexLiteralPattern], ReprintHex);
}

// Numbers the aliases by first appearance. Each round replaces one alias everywhere. A canonical
// name is never taken for an alias, since its "t" follows a word character.
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

// One step: replaces all matches of `pattern` by `format`, or calls `rewrite` if there is one.
struct Step {
  PatternPosition pattern;
  const char* format;
  void (*rewrite)(WorkingText&) = nullptr;
  bool only_with_single_alias = false;
};

constexpr std::array<Step, kStepCount> kSteps{{
    {QuotedStatementPattern, "$1"},
    {DecimalLiteralPattern, nullptr, ReprintDecimalLiterals},
    {HexLiteralPattern, nullptr, ReprintHexLiterals},
    {ComparisonGroupPattern, " $1 "},
    {NegatedInListPattern, "$1 NOT IN ($2)"},
    {ParameterListPattern, ""},
    {MultiRowValuesPattern, "$1"},
    {NumberLetterPattern, "$1 $2"},
    {TokenSpacingPattern, " $1 "},
    {WhitespaceRunPattern, " "},
    {InsertKeywordPattern, "INSERT"},
    {DeleteKeywordPattern, "DELETE"},
    {SelectKeywordPattern, "SELECT"},
    {FromKeywordPattern, "FROM"},
    {UpdateKeywordPattern, "UPDATE"},
    {WhereKeywordPattern, "WHERE"},
    {ValuesKeywordPattern, "VALUES"},
    {SpacedDotPattern, "$1"},
    {SpacedCommaPattern, ", "},
    {TableAliasPattern, nullptr, NumberAliases},
    {FirstAliasPattern, " ", nullptr, true},
    {LeadingSpacePattern, ""},
    {TrailingSpacePattern, ""},
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
    if (observer != nullptr)
      observer->AfterStep(number, kDefinitions.at(step.pattern).step, working.text);
  }
  return std::move(working.text);
}

}  // namespace tarn::sqlnorm

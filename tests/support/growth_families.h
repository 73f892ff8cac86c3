// Statements that are easy to write at any length and hard on a careless normalizer.
#pragma once

#include <array>
#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

namespace tarn::test {

struct GrowthFamily {
  const char* name;
  std::string_view prefix;
  // Repeated to the length wanted. A '#' stands for the number of the repetition.
  std::string_view unit;
  std::string_view suffix = {};

  friend std::ostream& operator<<(std::ostream& stream, const GrowthFamily& family) {
    return stream << family.name;
  }
};

inline constexpr std::array kGrowthFamilies{
    GrowthFamily{"QuoteThenBlanks", "\"a", " ", "b"},
    GrowthFamily{"QuotedBlanks", "\"", " ", "\""},
    GrowthFamily{"Blanks", "a", " ", "b"},
    GrowthFamily{"LineBreaks", "=", "\n", "="},
    GrowthFamily{"Quotes", "", "\""},
    GrowthFamily{"OpenParentheses", "", "("},
    GrowthFamily{"NestedParentheses", "((((a = b", ")"},
    GrowthFamily{"NestedGroups", "", "((a = b) and "},
    GrowthFamily{"SpacedParentheses", "", "(      "},
    GrowthFamily{"OpenValues", "", "values("},
    GrowthFamily{"ValuesThenBlanks", "values (1)", " ", "x"},
    GrowthFamily{"ValuesRows", "insert into tab values (0)", ",(1)"},
    GrowthFamily{"ClosedValues", "", "values(1) "},
    GrowthFamily{"OpenNot", "", "not ("},
    GrowthFamily{"OpenNotIn", "", "not (a in ("},
    GrowthFamily{"NotIn", "", "not (a in (1, 2)) "},
    GrowthFamily{"InList", "select a from b where c in (0", ", 1", ")"},
    GrowthFamily{"OpenParameters", "", "(@p1,"},
    GrowthFamily{"Parameters", "(@p0", ", @p1", ")"},
    GrowthFamily{"OpenComparisons", "(a = b", " and c >= d"},
    GrowthFamily{"Comparisons", "", "(a = b and c.d != 1.5) "},
    GrowthFamily{"DistinctAliases", "select a from b", ", t#"},
    GrowthFamily{"OneAlias", "select t1.a from b as t1", ", t1.c"},
    GrowthFamily{"LongAlias", "t", "1"},
    GrowthFamily{"Decimals", "", "0.1,"},
    GrowthFamily{"DottedDigits", "", "1."},
    GrowthFamily{"Exponents", "", "1.5e3."},
    GrowthFamily{"LongDecimal", "0.", "7"},
    GrowthFamily{"Hexadecimals", "", "0x1F "},
    GrowthFamily{"LongHexadecimal", "0x", "F"},
    GrowthFamily{"LongWord", "", "a"},
    GrowthFamily{"LongNumber", "", "1"},
    GrowthFamily{"DigitsAndLetters", "", "1a "},
    GrowthFamily{"DottedName", "a", ".b"},
    GrowthFamily{"Dots", "", "."},
    GrowthFamily{"SpacedDots", "a", " . "},
    GrowthFamily{"Commas", "", ", "},
    GrowthFamily{"CommasAndDots", "", " , . "},
    GrowthFamily{"Operators", "", "<>="},
    GrowthFamily{"InsertInto", "", "insert into "},
    GrowthFamily{"CanonicalNames", "t1", " as ____t1.a"},
    GrowthFamily{"HighBytes", "", "\xE9\xFF "},
};

// A statement of the family, of about `length` bytes.
inline std::string Grow(const GrowthFamily& family, std::size_t length) {
  std::string text(family.prefix);
  const std::size_t number = family.unit.find('#');
  for (std::size_t i = 0; text.size() + family.suffix.size() < length; ++i) {
    text += family.unit.substr(0, number);
    if (number == std::string_view::npos) continue;
    text += std::to_string(i);
    text += family.unit.substr(number + 1);
  }
  text += family.suffix;
  return text;
}

}  // namespace tarn::test

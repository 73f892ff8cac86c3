// Statements that are easy to write at any length and hard on a careless normalizer, alone and in
// combination.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <string_view>

namespace tarn::test {

struct GrowthFamily {
  const char* name;
  std::string_view prefix;
  // Repeated to the length wanted. A '#' stands for the number of the repetition.
  std::string_view unit;
  std::string_view suffix = {};
  // Stands for the numbers of the repetitions beginning anew.
  std::size_t cycle = static_cast<std::size_t>(-1);
  // Repeated to half the length, before the units.
  std::string_view long_member = {};

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
    GrowthFamily{"OpenValuesThenRow", "", "values(", "1) x"},
    GrowthFamily{"ValuesThenBlanks", "values (1)", " ", "x"},
    GrowthFamily{"ValuesRows", "insert into tab values (0)", ",(1)"},
    GrowthFamily{"DroppedDecimals", "values (0)", ",(1.5)"},
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
    GrowthFamily{"LongAliases", "select a from b", ", t12345678#"},
    GrowthFamily{"OneAlias", "select t1.a from b as t1", ", t1.c"},
    GrowthFamily{"DenseAliases", "", "t1 "},
    GrowthFamily{"LongAlias", "t", "1"},
    // Where a look at a short alias may cost a look at the long one.
    GrowthFamily{"LongAliasAmongShort", "t", ", t#", "", 40, "1"},
    GrowthFamily{"LongAliasAmongLong", "t", ", t12345678#", "", 40, "1"},
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

inline void Repeat(std::string_view unit, std::size_t length, std::string& text) {
  for (const std::size_t end = text.size() + length; text.size() < end;) text += unit;
}

inline void AppendNumbered(std::string_view unit, std::size_t number, std::string& text) {
  const std::size_t mark = unit.find('#');
  text += unit.substr(0, mark);
  if (mark != std::string_view::npos) {
    text.append(std::to_string(number)).append(unit.substr(mark + 1));
  }
}

// A statement of the family, of about `length` bytes.
inline std::string Grow(const GrowthFamily& family, std::size_t length) {
  std::string text(family.prefix);
  if (!family.long_member.empty()) Repeat(family.long_member, length / 2, text);
  for (std::size_t i = 0; text.size() + family.suffix.size() < length; ++i) {
    AppendNumbered(family.unit, i % family.cycle, text);
  }
  text += family.suffix;
  return text;
}

// Two families in one statement, drawn from a number: the same number gives the same combination.
class GrowthCombination {
 public:
  explicit GrowthCombination(std::uint64_t number) {
    std::mt19937_64 random(number);
    how_ = static_cast<How>(random() % kHows);
    one_ = kGrowthFamilies[random() % kGrowthFamilies.size()];
    other_ = kGrowthFamilies[random() % kGrowthFamilies.size()];
    pieces_ = 2 + random() % 30;
    if (random() % 2 == 0) one_.cycle = pieces_ * 2;
  }

  // A statement of about `length` bytes.
  std::string Grow(std::size_t length) const {
    std::string text;
    switch (how_) {
      case How::kAfter:
        return test::Grow(one_, length / 2) + ' ' + test::Grow(other_, length / 2);
      case How::kInside:
        text = test::Grow(one_, length / 2);
        return text.insert(text.size() / 2, test::Grow(other_, length / 2));
      case How::kInPieces:
        for (std::size_t i = 0; i < pieces_; ++i) {
          text += test::Grow(i % 2 == 0 ? one_ : other_, length / pieces_);
        }
        return text;
      case How::kInterleaved:
        text = one_.prefix;
        for (std::size_t i = 0; text.size() < length; ++i) {
          AppendNumbered(one_.unit, i % pieces_, text);
          AppendNumbered(other_.unit, i % pieces_, text);
        }
        return text.append(other_.suffix);
      case How::kLongMemberAmongShort:
        text = one_.prefix;
        Repeat(one_.unit.substr(0, one_.unit.find('#')), length / 2, text);
        return text + test::Grow(other_, length / 2);
    }
    return text;
  }

  friend std::ostream& operator<<(std::ostream& stream, const GrowthCombination& combination) {
    constexpr std::array<const char*, kHows> kNames{"after", "inside", "in pieces", "interleaved",
                                                    "long member among short"};
    return stream << combination.one_ << ", " << combination.other_ << ' '
                  << kNames[static_cast<std::size_t>(combination.how_)];
  }

 private:
  enum class How : std::size_t { kAfter, kInside, kInPieces, kInterleaved, kLongMemberAmongShort };
  static constexpr std::size_t kHows = 5;

  How how_;
  GrowthFamily one_;
  GrowthFamily other_;
  std::size_t pieces_;
};

inline std::string Grow(const GrowthCombination& combination, std::size_t length) {
  return combination.Grow(length);
}

}  // namespace tarn::test

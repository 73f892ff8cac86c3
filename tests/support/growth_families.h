// Statements that are easy to write at any length and costly for a careless normalizer, alone and
// in combination.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "support/case_file.h"

namespace tarn::test {

// A family of tests/cases/growth_families.txt.
struct GrowthFamily {
  std::string name;
  std::string prefix{};
  std::string unit{};
  std::string suffix{};
  std::size_t cycle = static_cast<std::size_t>(-1);
  std::string long_member{};

  friend std::ostream& operator<<(std::ostream& stream, const GrowthFamily& family) {
    return stream << family.name;
  }
};

inline const std::vector<GrowthFamily>& GrowthFamilies() {
  static const std::vector<GrowthFamily> families = [] {
    std::vector<GrowthFamily> read;
    for (const CaseRow& row : ReadCases("growth_families.txt")) {
      if (row.texts.empty()) {
        read.push_back({"Malformed" + std::to_string(read.size()), row.where + ": " + row.lines});
      }
      for (const std::string& text : row.texts) {
        GrowthFamily& family = read.emplace_back();
        std::istringstream parts(text);
        std::string label;
        for (std::string* part :
             {&label, &family.unit, &family.prefix, &family.suffix, &family.long_member}) {
          std::getline(parts, *part, '|');
        }
        std::istringstream(label) >> family.name >> family.cycle;
      }
    }
    return read;
  }();
  return families;
}

inline void Repeat(std::string_view unit, std::size_t length, std::string& text) {
  for (const std::size_t end = text.size() + length; text.size() < end;) text += unit;
}

// Appends the unit. "#" becomes `number`, and each "~" a digit drawn for `number`: the same number
// gives the same digits.
inline void AppendNumbered(std::string_view unit, std::size_t number, std::string& text) {
  std::uint64_t drawn = number;
  for (const char c : unit) {
    if (c == '#') {
      text += std::to_string(number);
    } else if (c == '~') {
      // The generator "splitmix64", which needs no warm-up.
      drawn += 0x9E3779B97F4A7C15;
      std::uint64_t mixed = (drawn ^ (drawn >> 30)) * 0xBF58476D1CE4E5B9;
      mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
      text += static_cast<char>('0' + (mixed ^ (mixed >> 31)) % 10);
    } else {
      text += c;
    }
  }
}

// A statement of the family, of about `length` bytes. Throws std::invalid_argument if the family's
// row is malformed.
inline std::string Grow(const GrowthFamily& family, std::size_t length) {
  if (family.unit.empty()) throw std::invalid_argument(family.prefix);
  std::string text(family.prefix);
  if (!family.long_member.empty()) Repeat(family.long_member, length / 2, text);
  for (std::size_t i = 0; text.size() + family.suffix.size() < length; ++i) {
    AppendNumbered(family.unit, i % family.cycle, text);
  }
  text += family.suffix;
  return text;
}

// A statement of about `length` bytes that combines two families. `number` selects the families and
// the way to combine them.
inline std::string GrowCombination(std::uint64_t number, std::size_t length) {
  std::mt19937_64 random(number);
  const std::uint64_t how = random() % 3;
  GrowthFamily one = GrowthFamilies()[random() % GrowthFamilies().size()];
  const GrowthFamily& other = GrowthFamilies()[random() % GrowthFamilies().size()];
  const std::size_t pieces = 2 + random() % 30;
  if (random() % 2 == 0) one.cycle = pieces * 2;
  std::string text;
  switch (how) {
    case 0:
      // Pieces of two or more families, one after the other.
      for (std::size_t i = 0; i < pieces; ++i) {
        text += Grow(i % 2 == 0 ? one : other, length / pieces);
      }
      return text;
    case 1:
      text = one.prefix;
      for (std::size_t i = 0; text.size() < length; ++i) {
        AppendNumbered(one.unit, i % pieces, text);
        AppendNumbered(other.unit, i % pieces, text);
      }
      return text.append(other.suffix);
    default:
      // A long member among short ones.
      text = one.prefix;
      Repeat(one.unit.substr(0, one.unit.find_first_of("#~")), length / 2, text);
      return text + Grow(other, length / 2);
  }
}

}  // namespace tarn::test

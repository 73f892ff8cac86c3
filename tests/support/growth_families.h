// Statements that are easy to write at any length and hard on a careless normalizer, alone and in
// combination.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/case_file.h"

namespace tarn::test {

// A row of tests/cases/growth_families.txt.
struct GrowthFamily {
  std::string name;
  std::string prefix;
  std::string unit;
  std::string suffix;
  std::size_t cycle = static_cast<std::size_t>(-1);
  std::string long_member;

  friend std::ostream& operator<<(std::ostream& stream, const GrowthFamily& family) {
    return stream << family.name;
  }
};

inline const std::vector<GrowthFamily>& GrowthFamilies() {
  static const std::vector<GrowthFamily> families = [] {
    std::vector<GrowthFamily> read;
    for (CaseRow& row : ReadCases("growth_families.txt")) {
      row.texts.resize(4);
      GrowthFamily& family = read.emplace_back();
      std::istringstream(row.label) >> family.name >> family.cycle;
      family.prefix = row.texts[0];
      family.unit = row.texts[1];
      family.suffix = row.texts[2];
      family.long_member = row.texts[3];
    }
    return read;
  }();
  return families;
}

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
    one_ = GrowthFamilies()[random() % GrowthFamilies().size()];
    other_ = GrowthFamilies()[random() % GrowthFamilies().size()];
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

// Random statements for the comparison of the two engines, and random literals.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/case_file.h"

namespace tarn::test {

// Draws statements from the tokens of SQL and of this normalizer. They include the cases that are
// hard for a scanner: numbers of every length, exponents at the ends of every range, aliases of
// every length and more of them than are kept in place, lists inside words, and all these at the
// ends of blocks and buffers. The same number gives the same statements.
class RandomStatements {
 public:
  explicit RandomStatements(std::uint64_t number) : random_(number) {}

  std::string Next() {
    std::string sql;
    // Some are as long as the buffers on the stack.
    const std::size_t length = OneIn(200) ? 900 + Below(4100) : Below(10 + Below(140));
    aliases_ = OneIn(8) ? 40 : 4;
    // Some begin at the last few bytes of a block.
    if (OneIn(6)) sql.append(64 * (1 + Below(2)) - 1 - Below(20), " a1t"[Below(4)]);
    do {
      sql += OneIn(5) ? Edge() : Token();
      if (Below(3) != 0) sql += ' ';
      if (OneIn(50)) sql += static_cast<char>(Below(256));
    } while (sql.size() < length);
    return OneIn(40) ? '"' + sql + '"' : sql;
  }

  std::string Decimal() { return Digits() + '.' + Digits() + (OneIn(2) ? Exponent() : ""); }

 private:
  std::size_t Below(std::size_t bound) { return random_() % bound; }
  bool OneIn(std::size_t count) { return Below(count) == 0; }

  std::string Edge() {
    const std::size_t kind = Below(6);
    if (kind == 0) return Decimal();
    if (kind == 1) return (OneIn(2) ? "0x" : "0X") + Digits();
    if (kind == 2) {
      // `aliases_` distinct aliases, of two to twelve bytes.
      return 't' + std::string(OneIn(3) ? 5 + Below(6) : 0, '1') + std::to_string(Below(aliases_));
    }
    if (kind == 3) {
      std::string word = OneIn(2) ? "values" : Token();
      return word.insert(Below(word.size() + 1), OneIn(2) ? "(@p1)" : "(a=b)");
    }
    if (kind == 4) {
      return '(' + Token() + std::array{"=", ">=", " <", "!= ", "<>", ","}[Below(6)] + Edge() + ')';
    }
    return "values (" + Token() + ',' + Edge() + ')' + std::string(Below(2), ' ') + ',';
  }

  // Runs of zeros and nines, which carry.
  std::string Digits() {
    const std::size_t kind = Below(8);
    std::string digits(1 + Below(OneIn(3) ? 25 : 8), kind == 0 ? '0' : '9');
    if (kind <= 1) return digits;
    for (char& digit : digits) digit = static_cast<char>('0' + Below(10));
    return digits;
  }

  // Small exponents, those at the ends of double's range, and those near powers of two.
  std::string Exponent() {
    const std::string sign = std::array{"e", "E", "e+", "e-"}[Below(4)];
    const std::size_t kind = Below(4);
    if (kind == 0) return sign + std::to_string(290 + Below(40));
    if (kind > 1) return sign + std::to_string(Below(25));
    return sign + std::to_string((std::uint64_t{1} << Below(64)) + Below(3) - 1);
  }

  const std::string& Token() {
    static const std::vector<std::string> tokens = [] {
      std::vector<std::string> all;
      for (const CaseRow& row : ReadCases("tokens.txt")) {
        all.insert(all.end(), row.texts.begin(), row.texts.end());
      }
      return all;
    }();
    return tokens[Below(tokens.size())];
  }

  std::mt19937_64 random_;
  std::size_t aliases_ = 0;
};

}  // namespace tarn::test

// Tests which statements have one shape, and where tokens, quotes and comments begin and end.
#include "shapes/shape_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "logs/formats.h"
#include "sql/lexer.h"
#include "sql/text.h"
#include "support/allocations.h"
#include "support/case_file.h"
#include "support/random_statements.h"
#include "support/steps.h"

namespace tarn::test {
namespace {

using namespace tarn::host;
using ::testing::HasSubstr;

std::string ShapeOf(const std::string& statement, Dialect dialect, bool fold_digits = false) {
  return ShapeMaker({.dialect = dialect, .fold_digits = fold_digits}).MakeShape(statement);
}

class Shapes : public testing::TestWithParam<CaseRow> {};

TEST_P(Shapes, AreOneOrDifferent) {
  const auto& [section, label, texts, where, lines] = GetParam();
  const Dialect dialect = Dialects().at(label.substr(label.find(' ') + 1));
  ASSERT_GT(texts.size(), 1) << lines;
  std::map<std::string, std::string> known;
  for (const std::string& statement : texts) {
    const std::string shape = ShapeOf(statement, dialect, section == "Folded");
    if (section == "Apart") {
      const auto [other, fresh] = known.emplace(shape, statement);
      EXPECT_TRUE(fresh) << other->second << "\n" << statement << "\n" << shape;
    } else if (&statement != &texts.back()) {
      EXPECT_EQ(shape, texts.back()) << statement;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, Shapes, testing::ValuesIn(ReadCases("shape_rules.txt")), CaseName);

// Draws a statement by the grammar in tests/cases/drawn_statements.txt, and writes it in many
// variants, with other values, lengths of lists, numbers of rows, comments, blanks and case. One
// number always gives the same variants.
class DrawnStatement {
 public:
  DrawnStatement(Dialect dialect, std::uint64_t number) : dialect_(dialect), random_(number) {
    Draw("Statement", 7);
  }

  // The next variant of the statement.
  std::string Write() {
    std::string sql = OneIn(4) ? OneOf("Comment") : "";
    WriteParts(sql, 0, parts_.size());
    for (std::size_t i = Below(3); i > 0; --i) sql += OneIn(2) ? ";" : "\n";
    return sql;
  }

  // The words and the names without quotes, in the case in which they were drawn.
  std::vector<std::string> Words() const {
    std::vector<std::string> words;
    for (const Part& part : parts_) {
      if (!part.symbol && IsWord(part.text)) words.push_back(part.text);
    }
    return words;
  }

  // Changes a word, a quoted name or an operator, so that it is another statement.
  void ChangeOne() {
    auto& [text, symbol, row] = parts_[Below(parts_.size())];
    // Rows have no text, which is in any other.
    const bool separates = std::string_view("(),.;[]::").find(text) != std::string_view::npos;
    if (symbol || separates) return ChangeOne();
    const bool quoted = text[0] == '"' || text[0] == '`';
    text = quoted ? text.insert(1, "_other") : IsWord(text) ? text + "_other" : "^";
  }

 private:
  struct Part {
    std::string text;
    // Whether it is a symbol, of which each variant has another alternative.
    bool symbol = false;
    // The number of the parts after it that are one row of VALUES; 0 if it is not the rows.
    std::size_t row = 0;
  };

  static bool IsWord(const std::string& text) {
    return !text.empty() && (host::IsWord(text[0]) || (text[0] == '@' && text.size() > 2));
  }

  std::size_t Below(std::size_t bound) { return random_() % bound; }
  bool OneIn(std::size_t count) { return Below(count) == 0; }

  // The section and the alternatives of a symbol.
  const CaseRow& Find(const std::string& symbol) const {
    static std::map<Dialect, std::map<std::string, CaseRow>> grammars;
    std::map<std::string, CaseRow>& grammar = grammars[dialect_];
    if (!grammar.empty()) return grammar.at(symbol);
    for (const CaseRow& row : ReadCases("drawn_statements.txt")) {
      if (row.texts.empty()) throw std::runtime_error(row.lines);
      const std::string name = row.label.substr(0, row.label.find(' '));
      if (row.label != name && row.label.find(RulesOf(dialect_).name) == std::string::npos) {
        continue;
      }
      const auto [known, fresh] = grammar.emplace(name, row);
      CaseTexts& all = known->second.texts;
      if (!fresh) all.insert(all.end(), row.texts.begin(), row.texts.end());
    }
    return grammar.at(symbol);
  }

  const std::string& OneOf(const std::string& symbol, bool first = false) {
    const CaseTexts& alternatives = Find(symbol).texts;
    return alternatives[first ? 0 : Below(alternatives.size())];
  }

  static bool IsSymbol(const std::string& word) {
    return word[0] >= 'A' && word[0] <= 'Z' && word.size() > 1 && Lower(word[1]) == word[1];
  }

  void Draw(const std::string& symbol, int depth) {
    const std::string& section = Find(symbol).section;
    if (section == "Names") {
      parts_.push_back({OneOf(symbol)});
    } else if (section != "Grammar") {
      parts_.push_back({symbol, true});
    } else {
      std::istringstream words(OneOf(symbol, depth <= 0));
      for (std::string word; words >> word;) {
        if (word == "Rows") {
          const std::size_t rows = parts_.size();
          parts_.push_back({});
          Draw("Row", depth - 2);
          parts_[rows].row = parts_.size() - rows - 1;
        } else if (IsSymbol(word)) {
          Draw(word, depth - 1);
        } else {
          parts_.push_back({word});
        }
      }
    }
  }

  // Writes `text`, with blanks before it.
  void WriteText(std::string& sql, std::string_view text) {
    constexpr std::string_view kNoneAfter = "(,[=";
    constexpr std::string_view kNoneBefore = "),]=";
    const bool needless = sql.empty() || kNoneAfter.find(sql.back()) != std::string_view::npos ||
                          kNoneBefore.find(text[0]) != std::string_view::npos;
    bool blank = text != "." && !sql.ends_with('.') && !(needless && OneIn(2));
    for (; blank; blank = OneIn(8)) {
      constexpr std::string_view kBlanks[] = {" ", "\n", "\t ", "\r\n", "\v", "\f"};
      sql += kBlanks[Below(std::size(kBlanks))];
      if (OneIn(8)) sql += OneOf("Comment") + ' ';
    }
    sql += text;
  }

  void WriteVariant(std::string& sql, const std::string& symbol) {
    const std::string& alternative = OneOf(symbol);
    if (Find(symbol).section == "Texts") return WriteText(sql, alternative);
    std::istringstream words(alternative);
    for (std::string word; words >> word;) {
      IsSymbol(word) && word != "True" ? WriteVariant(sql, word) : WriteText(sql, word);
    }
  }

  void WriteParts(std::string& sql, std::size_t at, std::size_t end) {
    for (; at < end; ++at) {
      auto [text, symbol, row] = parts_[at];
      if (symbol) {
        WriteVariant(sql, text);
      } else if (row > 0) {
        for (std::size_t i = Below(3); i <= 2; ++i) {
          WriteParts(sql, at + 1, at + row + 1);
          if (i < 2) WriteText(sql, ",");
        }
        at += row;
      } else if (IsWord(text)) {
        for (char& c : text) {
          if (c >= 'a' && c <= 'z' && OneIn(4)) c = static_cast<char>(c - 'a' + 'A');
        }
        // Only MySQL executes the content of such a comment.
        const bool executable = dialect_ == Dialect::kMysql && !sql.ends_with('.') &&
                                at + 1 < end && parts_[at + 1].text != "." && OneIn(20);
        WriteText(sql, executable ? "/*!50001 " + text + " */" : text);
      } else {
        WriteText(sql, text);
      }
    }
  }

  Dialect dialect_;
  std::mt19937_64 random_;
  std::vector<Part> parts_;
};

class Random : public testing::TestWithParam<Dialect> {
 protected:
  static constexpr std::uint64_t kStatements = 2000;
  const Dialect dialect_ = GetParam();
  RandomStatements random_{static_cast<std::uint64_t>(dialect_)};
};

INSTANTIATE_TEST_SUITE_P(Dialects, Random,
                         testing::Values(Dialect::kMysql, Dialect::kAnsi, Dialect::kPostgres),
                         [](const auto& one) { return RulesOf(one.param).name; });

TEST_P(Random, ShapesDependOnAllButValues) {
  ShapeMaker used({.dialect = dialect_});
  for (std::uint64_t number = 0; number < kStatements; ++number) {
    DrawnStatement statement(dialect_, number);
    const std::string first = statement.Write();
    const std::string shape = ShapeOf(first, dialect_);
    for (int i = 0; i < 3; ++i) {
      const std::string other = statement.Write();
      ASSERT_EQ(used.MakeShape(other), shape) << number << "\n" << first << "\n" << other;
    }
    std::string words = ' ' + shape + ' ';
    for (char& c : words) c = IsWord(c) || c == '@' ? Lower(c) : ' ';
    for (const std::string& word : statement.Words()) {
      ASSERT_THAT(words, HasSubstr(' ' + word + ' ')) << first << "\n" << shape;
    }
    statement.ChangeOne();
    ASSERT_NE(used.MakeShape(statement.Write()), shape) << number << "\n" << first;
  }
}

std::vector<std::string> Tokens() {
  std::vector<std::string> tokens;
  for (const CaseRow& row : ReadCases("tokens.txt")) {
    EXPECT_FALSE(row.texts.empty()) << row.lines;
    tokens.insert(tokens.end(), row.texts.begin(), row.texts.end());
  }
  return tokens;
}

// All pairs of tokens and of a few longer statements.
TEST_P(Random, ShapesDependOnNoStatementBefore) {
  std::vector<std::string> statements = Tokens();
  for (int i = 0; i < 40; ++i) statements.push_back(random_.Next());
  ShapeMaker used({.dialect = dialect_});
  for (const std::string& before : statements) {
    // The second may follow in the same text, unless the first has an open quote or comment.
    const std::string marked = ShapeOf(before + ";x", dialect_);
    const bool closed = marked.ends_with("; x") && before.find("/*") == std::string::npos;
    for (const std::string& sql : statements) {
      const std::string shape = ShapeOf(sql, dialect_);
      used.MakeShape(before);
      ASSERT_EQ(used.MakeShape(sql), shape) << before << "\n" << sql;
      if (!closed || shape == "/* empty */") continue;
      std::string both = used.MakeShape(before + ';' + sql);
      const std::size_t end = marked.size() - 2;
      both.erase(end, both.at(end) == ' ' ? 1 : 0);
      ASSERT_EQ(both, marked.substr(0, end) + shape) << before << "\n" << sql;
    }
  }
}

// Each token alone and all of them in random order, as long statements. None may cost more than so
// many steps and bytes of memory a byte.
TEST_P(Random, ShapesCostLittleAByte) {
  constexpr std::size_t kSize = 20'000;
  constexpr std::uint64_t kMostSteps = 200;
  constexpr std::size_t kMostMemory = 20;
  constexpr std::size_t kConstantMemory = 2000;
  const std::vector<std::string> tokens = Tokens();
  std::mt19937_64 random(1);
  for (std::size_t family = 0; family < tokens.size() + 10; ++family) {
    std::string sql;
    while (sql.size() < kSize) {
      sql += tokens[family < tokens.size() ? family : random() % tokens.size()];
    }
    const PeakMemory peak;
    const std::uint64_t before = steps;
    ShapeOf(sql, dialect_);
    EXPECT_LE(steps - before, kMostSteps * sql.size()) << sql.substr(0, 60);
    EXPECT_LE(peak.Bytes(), kMostMemory * sql.size() + kConstantMemory) << sql.substr(0, 60);
  }
}

// The statements that the splitter finds in `sql` if it gets the text in two pieces.
std::vector<std::string_view> Split(const std::string& sql, std::size_t cut, Dialect dialect) {
  const auto splitter = MakeSqlSplitter({.dialect = dialect});
  std::vector<std::string_view> statements;
  std::string_view rest = sql;
  Found found;
  if (cut < sql.size()) rest.remove_prefix(splitter->Split(rest.substr(0, cut), false, found));
  splitter->Split(rest, true, found);
  for (const FoundStatement& one : found.statements) statements.push_back(one.text);
  return statements;
}

// The statements by their tokens: each semicolon ends one, if a token is before it.
std::vector<std::string_view> SplitByTokens(std::string_view sql, Dialect dialect) {
  std::vector<std::string_view> statements;
  Lexer lexer(sql, dialect);
  for (const char* begin = nullptr;;) {
    const Token token = lexer.Next();
    const bool last = token.kind == TokenKind::kEnd;
    if (!last && !token.Is(';')) {
      if (begin == nullptr) begin = token.text.data();
      continue;
    }
    if (begin != nullptr) {
      statements.push_back(Trimmed({begin, last ? sql.end() : token.text.data()}));
    }
    if (last) return statements;
    begin = nullptr;
  }
}

TEST_P(Random, OpaquePartsEndAlikeForTheSplitterAndTheLexer) {
  // The splitter has rules for these, which the lexer does not know.
  const std::regex more("/\\*M?!|(^|\n)[ \t\r\v\f]*(/|go)[ \t\r\v\f]*(\n|$)");
  std::size_t compared = 0;
  for (std::uint64_t number = 0; number < kStatements; ++number) {
    const std::string sql =
        (number % 2 == 0 ? DrawnStatement(dialect_, number).Write() : random_.Next()) + ';' +
        random_.Next();
    const std::vector<std::string_view> whole = Split(sql, sql.size(), dialect_);
    if (!std::regex_search(sql, more)) {
      ASSERT_EQ(whole, SplitByTokens(sql, dialect_)) << sql;
      ++compared;
    }
    for (std::size_t cut = 0; cut < sql.size() && sql.size() <= 400; ++cut) {
      ASSERT_EQ(Split(sql, cut, dialect_), whole) << "cut at " << cut << "\n" << sql;
    }
  }
  EXPECT_GT(compared, kStatements / 3);
}

}  // namespace
}  // namespace tarn::test

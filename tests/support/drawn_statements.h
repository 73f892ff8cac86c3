// Random statements of one shape, and similar statements of another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "sql/dialect.h"
#include "sql/text.h"
#include "support/case_file.h"

namespace tarn::test {

// Draws a statement by the grammar in tests/cases/drawn_statements.txt, and writes it in many
// variants, with other values, lengths of lists, numbers of rows, comments, blanks and case. One
// number always gives the same variants.
class DrawnStatement {
 public:
  DrawnStatement(host::Dialect dialect, std::uint64_t number) : dialect_(dialect), random_(number) {
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
    static std::map<host::Dialect, std::map<std::string, CaseRow>> grammars;
    std::map<std::string, CaseRow>& grammar = grammars[dialect_];
    if (!grammar.empty()) return grammar.at(symbol);
    for (const CaseRow& row : ReadCases("drawn_statements.txt")) {
      if (row.texts.empty()) throw std::runtime_error(row.lines);
      const std::string name = row.label.substr(0, row.label.find(' '));
      if (row.label != name && row.label.find(host::RulesOf(dialect_).name) == std::string::npos) {
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
    return word[0] >= 'A' && word[0] <= 'Z' && word.size() > 1 && host::Lower(word[1]) == word[1];
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
        const bool executable = dialect_ == host::Dialect::kMysql && !sql.ends_with('.') &&
                                at + 1 < end && parts_[at + 1].text != "." && OneIn(20);
        WriteText(sql, executable ? "/*!50001 " + text + " */" : text);
      } else {
        WriteText(sql, text);
      }
    }
  }

  host::Dialect dialect_;
  std::mt19937_64 random_;
  std::vector<Part> parts_;
};

}  // namespace tarn::test

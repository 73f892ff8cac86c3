// Random statements of one shape, and similar statements of another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <sstream>
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
      if (part.kind == Kind::kWord) words.push_back(part.text);
    }
    return words;
  }

  // Changes a word, a quoted name or an operator, so that it is another statement.
  void ChangeOne() {
    Part& part = parts_[Below(parts_.size())];
    if (part.kind > Kind::kOperator) return ChangeOne();
    if (part.kind == Kind::kOperator) {
      part.text = "^";
    } else {
      part.text.insert(part.kind == Kind::kWord ? part.text.size() : 1, "_other");
    }
  }

 private:
  enum class Kind { kWord, kQuoted, kOperator, kSeparator, kVariant, kRows };
  struct Part {
    Kind kind;
    std::string text;
    // The number of parts after it that are one row, if the part is kRows.
    std::size_t row = 0;
  };

  std::size_t Below(std::size_t bound) { return random_() % bound; }
  bool OneIn(std::size_t count) { return Below(count) == 0; }

  // The section and the alternatives of a symbol.
  const CaseRow& Find(const std::string& symbol) const {
    static std::map<host::Dialect, std::map<std::string, CaseRow>> grammars;
    std::map<std::string, CaseRow>& grammar = grammars[dialect_];
    if (!grammar.empty()) return grammar.at(symbol);
    for (const CaseRow& row : ReadCases("drawn_statements.txt")) {
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

  static Kind KindOf(const std::string& text) {
    if (text[0] == '"' || text[0] == '`') return Kind::kQuoted;
    if (host::IsWord(text[0]) || (text[0] == '@' && text.size() > 2)) return Kind::kWord;
    const bool separates = std::string_view("(),.;[]::").find(text) != std::string_view::npos;
    return separates ? Kind::kSeparator : Kind::kOperator;
  }

  void Draw(const std::string& symbol, int depth) {
    const std::string& section = Find(symbol).section;
    if (section == "Names") {
      const std::string& name = OneOf(symbol);
      parts_.push_back({KindOf(name), name});
    } else if (section != "Grammar") {
      parts_.push_back({Kind::kVariant, symbol});
    } else {
      std::istringstream words(OneOf(symbol, depth <= 0));
      for (std::string word; words >> word;) {
        if (word == "Rows") {
          const std::size_t rows = parts_.size();
          parts_.push_back({Kind::kRows, {}});
          Draw("Row", depth - 2);
          parts_[rows].row = parts_.size() - rows - 1;
        } else if (IsSymbol(word)) {
          Draw(word, depth - 1);
        } else {
          parts_.push_back({KindOf(word), word});
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
      std::string text = parts_[at].text;
      if (parts_[at].kind == Kind::kVariant) {
        WriteVariant(sql, text);
      } else if (parts_[at].kind == Kind::kRows) {
        const std::size_t last = at + parts_[at].row;
        for (std::size_t i = Below(3); i <= 2; ++i) {
          WriteParts(sql, at + 1, last + 1);
          if (i < 2) WriteText(sql, ",");
        }
        at = last;
      } else if (parts_[at].kind == Kind::kWord) {
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

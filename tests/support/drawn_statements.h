// Random statements of one shape, and similar statements of another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
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
    constexpr int kDepth = 7;
    Draw("Statement", kDepth, parts_);
  }

  // The next variant of the statement.
  std::string Write() {
    std::string sql = OneIn(4) ? OneOf("Comment") : "";
    WriteParts(sql, parts_);
    for (std::size_t i = Below(3); i > 0; --i) sql += OneIn(2) ? ";" : "\n";
    return sql;
  }

  // The words and the names without quotes, in the case in which they were drawn.
  std::vector<std::string> Words() {
    std::vector<std::string> words;
    for (const Part* part : Changeable(parts_)) {
      if (part->kind == Kind::kWord) words.push_back(part->text);
    }
    return words;
  }

  // Changes a word, a quoted name or an operator, so that it is another statement.
  void ChangeOne() {
    const std::vector<Part*> changeable = Changeable(parts_);
    Part& part = *changeable[Below(changeable.size())];
    if (part.kind == Kind::kSign) {
      part.text = "^";
    } else {
      part.text.insert(part.kind == Kind::kWord ? part.text.size() : 1, "_other");
    }
  }

 private:
  enum class Kind { kWord, kQuoted, kSign, kVariant, kRows };
  struct Part {
    Kind kind;
    std::string text;
    // One row, if the part is kRows.
    std::vector<Part> row = {};
  };

  std::size_t Below(std::size_t bound) { return random_() % bound; }
  bool OneIn(std::size_t count) { return Below(count) == 0; }

  struct Symbol {
    std::string section;
    std::vector<std::string> alternatives;
  };
  using Grammar = std::map<std::string, Symbol>;

  const Symbol& Find(const std::string& symbol) const {
    static std::map<host::Dialect, Grammar> grammars;
    Grammar& grammar = grammars[dialect_];
    if (grammar.empty()) {
      for (const CaseRow& row : ReadCases("drawn_statements.txt")) {
        const std::string name = row.label.substr(0, row.label.find(' '));
        if (row.label != name && !row.label.ends_with(host::RulesOf(dialect_).name)) continue;
        grammar[name].section = row.section;
        std::vector<std::string>& all = grammar[name].alternatives;
        all.insert(all.end(), row.texts.begin(), row.texts.end());
      }
    }
    return grammar.at(symbol);
  }

  const std::string& OneOf(const std::string& symbol, bool first = false) {
    const std::vector<std::string>& alternatives = Find(symbol).alternatives;
    return alternatives[first ? 0 : Below(alternatives.size())];
  }

  static bool IsSymbol(const std::string& word) {
    return word[0] >= 'A' && word[0] <= 'Z' && word.size() > 1 && host::Lower(word[1]) == word[1];
  }

  void Draw(const std::string& symbol, int depth, std::vector<Part>& parts) {
    const std::string& section = Find(symbol).section;
    if (section == "Names") {
      const std::string& name = OneOf(symbol);
      const bool quoted = name[0] == '"' || name[0] == '`';
      parts.push_back({quoted ? Kind::kQuoted : Kind::kWord, name});
      return;
    }
    if (section != "Grammar") {
      parts.push_back({Kind::kVariant, symbol});
      return;
    }
    std::istringstream words(OneOf(symbol, depth <= 0));
    for (std::string word; words >> word;) {
      if (word == "Rows") {
        parts.push_back({Kind::kRows, {}});
        Draw("Row", depth - 2, parts.back().row);
      } else if (IsSymbol(word)) {
        Draw(word, depth - 1, parts);
      } else {
        const bool sign = !host::IsWord(word[0]) && (word[0] != '@' || word.size() < 3);
        parts.push_back({sign ? Kind::kSign : Kind::kWord, word});
      }
    }
  }

  static std::vector<Part*> Changeable(std::vector<Part>& parts) {
    std::vector<Part*> changeable;
    for (Part& part : parts) {
      const bool separates = std::string_view("(),.;[]::").find(part.text) != std::string::npos;
      if (part.kind != Kind::kVariant && !separates) changeable.push_back(&part);
      const std::vector<Part*> within = Changeable(part.row);
      changeable.insert(changeable.end(), within.begin(), within.end());
    }
    return changeable;
  }

  // Writes the blanks between `sql` and `next`.
  void WriteBlanks(std::string& sql, std::string_view next) {
    constexpr std::string_view kNoneAfter = "(,[=";
    constexpr std::string_view kNoneBefore = "),]=";
    if (next == "." || sql.ends_with('.')) return;
    const bool needless = sql.empty() || kNoneAfter.find(sql.back()) != std::string_view::npos ||
                          kNoneBefore.find(next[0]) != std::string_view::npos;
    if (needless && OneIn(2)) return;
    do {
      constexpr std::string_view kBlanks[] = {" ", "\n", "\t ", "\r\n", "\v", "\f"};
      sql += kBlanks[Below(std::size(kBlanks))];
      if (OneIn(8)) sql += OneOf("Comment") + ' ';
    } while (OneIn(8));
  }

  void WriteText(std::string& sql, std::string_view text) {
    WriteBlanks(sql, text);
    sql += text;
  }

  void WriteVariant(std::string& sql, const std::string& symbol) {
    const std::string& alternative = OneOf(symbol);
    if (Find(symbol).section == "Texts") return WriteText(sql, alternative);
    std::istringstream words(alternative);
    for (std::string word; words >> word;) {
      if (IsSymbol(word) && word != "True") {
        WriteVariant(sql, word);
      } else {
        WriteText(sql, word);
      }
    }
  }

  void WriteParts(std::string& sql, const std::vector<Part>& parts) {
    for (const Part& part : parts) {
      if (part.kind == Kind::kVariant) {
        WriteVariant(sql, part.text);
      } else if (part.kind == Kind::kRows) {
        for (std::size_t i = 1 + Below(3); i > 0; --i) {
          WriteParts(sql, part.row);
          if (i > 1) WriteText(sql, ",");
        }
      } else {
        std::string text = part.text;
        for (char& c : text) {
          const bool letter = part.kind == Kind::kWord && c >= 'a' && c <= 'z';
          if (letter && OneIn(4)) c = static_cast<char>(c - 'a' + 'A');
        }
        // Only MySQL executes the content of such a comment.
        const bool executable = dialect_ == host::Dialect::kMysql && part.kind == Kind::kWord &&
                                !sql.ends_with('.') && &part != &parts.back() &&
                                (&part)[1].text != "." && OneIn(20);
        WriteText(sql, executable ? "/*!50001 " + text + " */" : text);
      }
    }
  }

  host::Dialect dialect_;
  std::mt19937_64 random_;
  std::vector<Part> parts_;
};

}  // namespace tarn::test

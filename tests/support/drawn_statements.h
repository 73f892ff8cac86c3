// Random statements of one shape, and similar statements of another.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "sql/dialect.h"

namespace tarn::test {

// Draws a statement of the dialect and writes it in many variants, with other values, lengths of
// lists, numbers of rows, comments, blanks and case. One number always gives the same variants.
class DrawnStatement {
 public:
  DrawnStatement(host::Dialect dialect, std::uint64_t number) : dialect_(dialect), random_(number) {
    const std::array draw{&DrawnStatement::Select, &DrawnStatement::Insert, &DrawnStatement::Update,
                          &DrawnStatement::Delete};
    (this->*draw[Below(draw.size())])();
  }

  // The next variant of the statement.
  std::string Write() {
    std::string sql = OneIn(4) ? Comment() : "";
    WriteParts(sql, parts_);
    for (std::size_t i = Below(3); i > 0; --i) sql += OneIn(2) ? ";" : "\n";
    return sql;
  }

  // The words and the names without quotes, in the case in which they were drawn.
  std::vector<std::string> Words() const {
    std::vector<std::string> words;
    Collect(parts_, words);
    return words;
  }

  // Replaces a word or changes a quoted name, so that it is another statement.
  void ChangeOne() {
    std::vector<Part*> changeable;
    for (Part& part : parts_) {
      if (part.kind == Kind::kWord || part.kind == Kind::kQuoted) changeable.push_back(&part);
    }
    Part& part = *changeable[Below(changeable.size())];
    if (part.kind == Kind::kWord) {
      part.text += "_other";
    } else {
      part.text.insert(1, "Other");
    }
  }

 private:
  enum class Kind { kWord, kQuoted, kSign, kValue, kList, kRows };
  struct Part {
    Kind kind;
    std::string text = {};
    // One row, if the part is kRows.
    std::vector<Part> row = {};
  };

  std::size_t Below(std::size_t bound) { return random_() % bound; }
  bool OneIn(std::size_t count) { return Below(count) == 0; }
  template <std::size_t kSize>
  std::string OneOf(const std::array<const char*, kSize>& texts) {
    return texts[Below(kSize)];
  }
  bool Mysql() const { return dialect_ == host::Dialect::kMysql; }
  bool Postgres() const { return dialect_ == host::Dialect::kPostgres; }

  // Draw the statement.

  void Add(Kind kind, std::string text = {}) { parts_.push_back({kind, std::move(text)}); }
  void Words(std::string_view words) {
    while (!words.empty()) {
      const std::string_view word = words.substr(0, words.find(' '));
      Add(Kind::kWord, std::string(word));
      words.remove_prefix(std::min(word.size() + 1, words.size()));
    }
  }

  void Name() {
    if (OneIn(6)) {
      const std::string quote = Mysql() ? "`" : "\"";
      Add(Kind::kQuoted,
          quote + OneOf(std::array{"A b", "Order;", "--", "it's", "/*", "Q(1"}) + quote);
    } else {
      Add(Kind::kWord, OneOf(std::array{"orders", "t1", "t2", "x_9", "e", "n", "_v", "a", "valuesx",
                                        "nullable", "\xC3\xA4", "isnull", "o$5", "array1"}));
    }
    if (!OneIn(4)) return;
    Add(Kind::kSign, ".");
    Add(Kind::kWord, OneOf(std::array{"id", "from", "null", "t3", "in", "values"}));
  }

  void Names() {
    do {
      Name();
      if (!OneIn(3)) return;
      Add(Kind::kSign, ",");
    } while (true);
  }

  void Expression(int depth = 2) {
    switch (Below(depth > 0 ? 9 : 2)) {
      case 0:
        Name();
        break;
      case 1:
        Add(Kind::kValue);
        break;
      case 2:
        Add(Kind::kWord, "f");
        Add(Kind::kList);
        break;
      case 3:
        Add(Kind::kWord, "coalesce");
        Add(Kind::kSign, "(");
        Name();
        Add(Kind::kSign, ",");
        Expression(depth - 1);
        Add(Kind::kSign, ")");
        break;
      case 4:
        Words("case when");
        Condition(depth - 1);
        Words("then");
        Expression(depth - 1);
        Words("else");
        Expression(depth - 1);
        Words("end");
        break;
      case 5:
        Add(Kind::kSign, "(");
        Select();
        Add(Kind::kSign, ")");
        break;
      case 6:
        if (!Postgres()) return Expression(depth - 1);
        Add(Kind::kWord, "array");
        Add(Kind::kSign, "[");
        Name();
        Add(Kind::kSign, ",");
        Add(Kind::kValue);
        Add(Kind::kSign, "]");
        break;
      default:
        Expression(depth - 1);
        Add(Kind::kSign, OneOf(std::array{"+", "-", "*", "||", "%"}));
        Expression(depth - 1);
    }
  }

  void Condition(int depth = 2) {
    switch (Below(depth > 0 ? 7 : 4)) {
      case 0:
        Name();
        Words(OneIn(2) ? "is null" : "is not null");
        break;
      case 1:
        Name();
        Words(OneIn(2) ? "in" : "not in");
        Add(Kind::kList);
        break;
      case 2:
        Name();
        Words("between");
        Add(Kind::kValue);
        Words("and");
        Add(Kind::kValue);
        break;
      case 4:
        Condition(depth - 1);
        Words(OneIn(2) ? "and" : "or");
        Condition(depth - 1);
        break;
      case 5:
        Words("not");
        Add(Kind::kSign, "(");
        Condition(depth - 1);
        Add(Kind::kSign, ")");
        break;
      default:
        Expression(depth - 1);
        Add(Kind::kSign, OneOf(std::array{"=", "<>", ">=", "<", "<="}));
        Expression(depth - 1);
    }
  }

  void Where() {
    if (OneIn(3)) return;
    Words("where");
    Condition();
  }

  void Select() {
    Words(OneIn(3) ? "select distinct" : "select");
    Expression(1);
    if (OneIn(3)) {
      Add(Kind::kSign, ",");
      Expression(1);
    }
    Words("from");
    Names();
    Where();
    if (OneIn(4)) {
      Words("limit");
      Add(Kind::kValue);
    }
  }

  void Insert() {
    Words("insert into");
    Name();
    if (OneIn(2)) {
      Add(Kind::kSign, "(");
      Names();
      Add(Kind::kSign, ")");
    }
    Words("values");
    std::vector<Part> before;
    before.swap(parts_);
    Add(OneIn(2) ? Kind::kList : Kind::kSign, "(");
    if (parts_[0].kind == Kind::kSign) {
      Names();
      Add(Kind::kSign, ",");
      Expression(1);
      Add(Kind::kSign, ")");
    }
    before.push_back({Kind::kRows, {}, std::move(parts_)});
    parts_ = std::move(before);
    if (OneIn(2)) return;
    Words(Mysql() ? "on duplicate key update a =" : "on conflict do update set a =");
    parts_.back().kind = Kind::kSign;
    Expression(1);
  }

  void Update() {
    Words("update");
    Name();
    Words("set");
    Name();
    Add(Kind::kSign, "=");
    Expression();
    Where();
  }

  void Delete() {
    Words("delete from");
    Name();
    Where();
  }

  static void Collect(const std::vector<Part>& parts, std::vector<std::string>& words) {
    for (const Part& part : parts) {
      if (part.kind == Kind::kWord) words.push_back(part.text);
      Collect(part.row, words);
    }
  }

  // Write a variant.

  std::string Value() {
    if (OneIn(2)) {
      return OneOf(std::array{"5", "-5", "+ 1.5e3", "- - .5", "0x1F", "1.", "?", ":name", "@p0",
                              "$1", "NULL", "True", "false", "1.0e999"});
    }
    if (OneIn(2)) {
      return OneOf(std::array{"'a'", "'it''s'", "''", "N'a'", "x'1F'", "'--'", "'/*'", "'*/'",
                              "'(,'", "';'", "'\"'", "'`'", "'$$'", "'\xC3\xA4\n'"});
    }
    if (Mysql()) {
      return OneOf(
          std::array{"\"a;\"", "'it\\'s;'", "_utf8'a'", "_utf8mb4 \"b\"", "'\\\\'", "\"'\""});
    }
    if (Postgres()) {
      return OneOf(
          std::array{"E'it\\'s;'", "e'\\\\'", "$$a 'b;$$", "$t$ $$ ; $t$", "'\\'", "1_000"});
    }
    return OneOf(std::array{"'\\'", "U&'\\0061'", "n'\\'"});
  }

  std::string Comment() {
    if (OneIn(3)) return "--" + OneOf(std::array{" x'\n", "\t\"\n", " ;\n", " /*\n", " $$\n"});
    if (OneIn(2)) return OneOf(std::array{"/***/", "/**/", "/*'*/", "/*\";\n*/", "/*$$*/"});
    if (Mysql()) return OneOf(std::array{"# it's\n", "#`\n", "/*/*/", "/* /* */", "/*+ a */"});
    return Postgres() ? "/* /* ' */ \" */" : "/* /* \" */";
  }

  // Writes the blanks between `sql` and `next`.
  void WriteBlanks(std::string& sql, std::string_view next) {
    constexpr std::string_view kNoneAfter = "(,[";
    constexpr std::string_view kNoneBefore = "),]";
    const bool needless = sql.empty() || kNoneAfter.find(sql.back()) != std::string_view::npos ||
                          kNoneBefore.find(next[0]) != std::string_view::npos;
    if (needless && OneIn(2)) return;
    do {
      sql += OneOf(std::array{" ", "\n", "\t ", "\r\n"});
      if (OneIn(8)) sql += Comment() + ' ';
    } while (OneIn(8));
  }

  void WriteText(std::string& sql, std::string_view text) {
    WriteBlanks(sql, text);
    sql += text;
  }

  void WriteList(std::string& sql) {
    WriteText(sql, "(");
    for (std::size_t i = 1 + Below(4); i > 0; --i) {
      WriteText(sql, Value());
      WriteText(sql, i > 1 ? "," : ")");
    }
  }

  void WriteParts(std::string& sql, const std::vector<Part>& parts) {
    for (const Part& part : parts) {
      switch (part.kind) {
        case Kind::kWord: {
          std::string word = part.text;
          for (char& c : word) {
            if (c >= 'a' && c <= 'z' && OneIn(4)) c = static_cast<char>(c - 'a' + 'A');
          }
          // Only MySQL executes the content of such a comment.
          const bool executable = Mysql() && OneIn(20);
          WriteText(sql, executable ? "/*!50001 " + word + " */" : word);
          break;
        }
        case Kind::kValue:
          WriteText(sql, Value());
          break;
        case Kind::kList:
          WriteList(sql);
          break;
        case Kind::kRows:
          for (std::size_t i = 1 + Below(3); i > 0; --i) {
            WriteParts(sql, part.row);
            if (i > 1) WriteText(sql, ",");
          }
          break;
        default:
          WriteText(sql, part.text);
      }
    }
  }

  host::Dialect dialect_;
  std::mt19937_64 random_;
  std::vector<Part> parts_;
};

}  // namespace tarn::test

#include "shapes/statement_folder.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "sql/text.h"

namespace tarn::host {
namespace {

// Words no statement is likely to hold. The second takes the place of a list's further values.
constexpr std::string_view kValueWord = "____v";
constexpr std::string_view kMoreWord = "____m";
constexpr std::string_view kWordsPrefix = "____";

// Words behind which a value may stand, so that a sign belongs to it. In order.
constexpr std::array<std::string_view, 59> kWordsBeforeValues{
    "all",      "and",     "any",       "as",       "between", "binary",  "by",     "call",
    "case",     "default", "distinct",  "div",      "do",      "else",    "elseif", "escape",
    "exec",     "execute", "fetch",     "for",      "from",    "global",  "having", "if",
    "ilike",    "in",      "increment", "interval", "is",      "like",    "limit",  "maxvalue",
    "minvalue", "mod",     "next",      "not",      "offset",  "on",      "or",     "print",
    "regexp",   "return",  "returning", "rlike",    "select",  "session", "set",    "similar",
    "some",     "start",   "then",      "to",       "top",     "using",   "values", "when",
    "where",    "with",    "xor"};
static_assert(std::is_sorted(kWordsBeforeValues.begin(), kWordsBeforeValues.end()));

enum class ByteKind : unsigned char { kSign, kBlank, kWord, kDigit };

constexpr std::array<ByteKind, 256> kByteKinds = [] {
  std::array<ByteKind, 256> kinds{};
  for (std::size_t byte = 0; byte < kinds.size(); ++byte) {
    const char c = static_cast<char>(byte);
    const bool letter =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || byte >= 0x80;
    if (letter) kinds[byte] = ByteKind::kWord;
    if (c >= '0' && c <= '9') kinds[byte] = ByteKind::kDigit;
    if (c == ' ' || (c >= '\t' && c <= '\r')) kinds[byte] = ByteKind::kBlank;
  }
  return kinds;
}();

ByteKind KindOf(char c) noexcept { return kByteKinds[static_cast<unsigned char>(c)]; }

bool IsOperator(char c) noexcept {
  return c != '\0' && std::string_view("<>=!|&^~%").find(c) != std::string_view::npos;
}

bool IsHexDigit(char c) noexcept {
  const char lower = Lower(c);
  return IsDigit(c) || (lower >= 'a' && lower <= 'f');
}

// `sql` without double quotes around the whole of it, which the product drops as well.
std::string_view Unwrapped(std::string_view sql) noexcept {
  sql = Trimmed(sql);
  if (sql.size() < 2 || sql.front() != '"' || sql.back() != '"') return sql;
  return sql.substr(1, sql.size() - 2);
}

}  // namespace

StatementFolder::StatementFolder(Dialect dialect) : dialect_(dialect) {}

const std::string& StatementFolder::Fold(std::string_view statement) {
  sql_ = Unwrapped(statement);
  text_.clear();
  levels_.assign(1, Level{});
  last_ = Last::kNothing;
  behind_ = Behind::kOther;
  pending_signs_.clear();
  pending_semicolon_ = in_executable_comment_ = false;
  for (std::size_t at = 0; at < sql_.size();) at = Token(at);
  if (!pending_signs_.empty()) FlushPending();
  return text_;
}

// Each of the functions that take a place handles the token there and returns where it ends.
std::size_t StatementFolder::Token(std::size_t at) {
  const char c = sql_[at];
  switch (KindOf(c)) {
    case ByteKind::kBlank:
      return at + 1;
    case ByteKind::kWord:
      return Word(at);
    case ByteKind::kDigit:
      return Number(at);
    case ByteKind::kSign:
      break;
  }
  if (const std::size_t end = Comment(at); end != at) return end;
  switch (c) {
    case '\'':
      return Quote(at, c, dialect_ == Dialect::kMysql);
    case '"':
    case '`':
      return Quote(at, c, dialect_ == Dialect::kMysql && c == '"');
    case '(':
      Open();
      return at + 1;
    case ')':
      Close();
      return at + 1;
    case ',':
      Comma();
      return at + 1;
    case '+':
    case '-':
      return PlusMinus(at);
    case '.':
      if (last_ != Last::kDot && !OperandBefore() && at + 1 < sql_.size() &&
          IsDigit(sql_[at + 1])) {
        return Number(at);
      }
      Dot();
      return at + 1;
    case '?':
      AddValue();
      return at + 1;
    case ':':
      return Colon(at);
    case '@':
      return AtSign(at);
    case '$':
      return Dollar(at);
    case ';':
      if (!pending_signs_.empty()) FlushPending();
      pending_semicolon_ = !text_.empty();
      return at + 1;
    default:
      break;
  }
  std::size_t end = at + 1;
  if (IsOperator(c)) {
    while (end < sql_.size() && IsOperator(sql_[end])) ++end;
  }
  AddSign(sql_.substr(at, end - at));
  return end;
}

// `at` when no comment begins there.
std::size_t StatementFolder::Comment(std::size_t at) {
  const char c = sql_[at];
  if (c != '-' && c != '/' && c != '#' && c != '*') return at;
  const std::string_view rest = sql_.substr(at);
  if (in_executable_comment_ && rest.starts_with("*/")) {
    in_executable_comment_ = false;
    return at + 2;
  }
  if (BeginsLineComment(rest, dialect_)) return std::min(sql_.find('\n', at), sql_.size());
  if (!rest.starts_with("/*")) return at;
  if (BeginsExecutableComment(rest, dialect_)) {
    in_executable_comment_ = true;
    std::size_t end = sql_.find('!', at) + 1;
    while (end < sql_.size() && IsDigit(sql_[end])) ++end;
    return end;
  }
  std::size_t depth = 1;
  for (at += 2; depth > 0; at += 2) {
    at = sql_.find_first_of(dialect_ == Dialect::kPostgres ? "*/" : "*", at);
    if (at >= sql_.size() - 1) return sql_.size();
    const std::string_view two = sql_.substr(at, 2);
    if (two == "*/") {
      --depth;
    } else if (two == "/*" && dialect_ == Dialect::kPostgres) {
      ++depth;
    } else {
      // One of the bytes has been looked at.
      --at;
    }
  }
  return at;
}

std::size_t StatementFolder::EndOfQuote(std::size_t at, char quote, bool escapes) const {
  for (++at; at < sql_.size(); ++at) {
    if (sql_[at] == '\\' && escapes) {
      ++at;
    } else if (sql_[at] == quote) {
      // A doubled quote stands for itself.
      if (at + 1 == sql_.size() || sql_[at + 1] != quote) return at + 1;
      ++at;
    }
  }
  return sql_.size();
}

std::size_t StatementFolder::EndOfWord(std::size_t at) const {
  while (at < sql_.size() && IsWord(sql_[at])) ++at;
  return at;
}

std::size_t StatementFolder::Quote(std::size_t at, char quote, bool escapes) {
  const std::size_t end = EndOfQuote(at, quote, escapes);
  if (quote == '\'' || (quote == '"' && dialect_ == Dialect::kMysql)) {
    // Texts that follow one another are one.
    if (last_ != Last::kValue || pending_semicolon_) AddValue();
  } else {
    AddWord(sql_.substr(at, end - at), Last::kName);
  }
  return end;
}

std::size_t StatementFolder::Word(std::size_t at) {
  const std::size_t end = EndOfWord(at);
  const std::string_view word = sql_.substr(at, end - at);
  // A text may have a letter or, in MySQL, the name of its character set before it.
  const std::string_view rest = sql_.substr(end);
  if (rest.starts_with('\'') && word.size() == 1) {
    const char letter = Lower(word[0]);
    if (letter == 'n' || letter == 'x' || letter == 'b' || letter == 'e') {
      return Quote(end, '\'',
                   letter == 'n' ? dialect_ == Dialect::kMysql
                                 : letter == 'e' && dialect_ == Dialect::kPostgres);
    }
  }
  if (rest.starts_with("&'") && word.size() == 1 && Lower(word[0]) == 'u') {
    return Quote(end + 1, '\'', false);
  }
  if (word[0] == '_' && dialect_ == Dialect::kMysql) {
    const std::size_t next = sql_.find_first_not_of(" \t\r\n", end);
    if (next != std::string_view::npos && (sql_[next] == '\'' || sql_[next] == '"')) return end;
  }
  AddWord(word, Last::kWord);
  return end;
}

std::size_t StatementFolder::Number(std::size_t at) {
  if (last_ == Last::kDot) {
    const std::size_t end = EndOfWord(at);
    AddWord(sql_.substr(at, end - at), Last::kWord);
    return end;
  }
  const auto byte = [this](std::size_t place) { return place < sql_.size() ? sql_[place] : '\0'; };
  const auto skip_digits = [&byte](std::size_t& place) {
    while (IsDigit(byte(place))) ++place;
  };
  std::size_t end = at;
  const char second = Lower(byte(at + 1));
  if (sql_[at] == '0' && (second == 'x' || second == 'b') && IsHexDigit(byte(at + 2))) {
    end += 2;
    while (IsHexDigit(byte(end))) ++end;
  } else {
    skip_digits(end);
    if (byte(end) == '.' && byte(end + 1) != '.') {
      ++end;
      skip_digits(end);
    }
    if (Lower(byte(end)) == 'e') {
      const std::size_t sign = byte(end + 1) == '+' || byte(end + 1) == '-' ? 1 : 0;
      if (IsDigit(byte(end + 1 + sign))) {
        end += 1 + sign;
        skip_digits(end);
      }
    }
  }
  if (end < sql_.size() && IsWord(sql_[end]) && sql_[at] != '.') {
    // A name that begins with digits.
    const std::size_t name_end = EndOfWord(at);
    if (name_end > end) {
      AddWord(sql_.substr(at, name_end - at), Last::kWord);
      return name_end;
    }
  }
  AddValue();
  return end;
}

std::size_t StatementFolder::Colon(std::size_t at) {
  const char next = at + 1 < sql_.size() ? sql_[at + 1] : '\0';
  if (IsWord(next)) {
    AddValue();
    return EndOfWord(at + 1);
  }
  const std::size_t size = next == ':' || next == '=' ? 2 : 1;
  AddSign(sql_.substr(at, size));
  return at + size;
}

std::size_t StatementFolder::AtSign(std::size_t at) {
  std::size_t name = at + 1;
  while (name < sql_.size() && sql_[name] == '@') ++name;
  const std::size_t end = EndOfWord(name);
  if (end == name) {
    AddSign("@");
    return at + 1;
  }
  const std::string_view parameter = sql_.substr(name, end - name);
  if (name == at + 1 && Lower(parameter[0]) == 'p' && parameter.size() > 1 &&
      std::all_of(parameter.begin() + 1, parameter.end(), IsDigit)) {
    AddValue();
  } else {
    AddWord(sql_.substr(at, end - at), Last::kWord);
  }
  return end;
}

std::size_t StatementFolder::Dollar(std::size_t at) {
  if (at + 1 < sql_.size() && IsDigit(sql_[at + 1])) {
    AddValue();
    return EndOfWord(at + 1);
  }
  if (dialect_ == Dialect::kPostgres) {
    const std::size_t size = DollarTagSize(sql_.substr(at));
    if (size != 0 && size != kUnfinishedTag) {
      const std::size_t close = sql_.find(sql_.substr(at, size), at + size);
      AddValue();
      return close == std::string_view::npos ? sql_.size() : close + size;
    }
  }
  const std::size_t end = EndOfWord(at);
  AddWord(sql_.substr(at, end - at), Last::kWord);
  return end;
}

std::size_t StatementFolder::PlusMinus(std::size_t at) {
  if (sql_.substr(at).starts_with("->")) {
    const std::size_t size = sql_.substr(at).starts_with("->>") ? 3 : 2;
    AddSign(sql_.substr(at, size));
    return at + size;
  }
  if (OperandBefore() && !pending_semicolon_ && pending_signs_.empty()) {
    AddSign(sql_.substr(at, 1));
  } else {
    if (pending_semicolon_) FlushPending();
    pending_signs_ += sql_[at];
  }
  return at + 1;
}

void StatementFolder::AddSign(std::string_view sign) {
  BeforeOther();
  Append(sign);
  last_ = Last::kSign;
}

// Whether `word` is NULL, TRUE or FALSE where a value may stand.
bool StatementFolder::IsValueWord(std::string_view word) const {
  constexpr std::size_t kShortest = 4;
  if (word.size() < kShortest || word.size() > kShortest + 1) return false;
  const char first = Lower(word[0]);
  if (first != 'n' && first != 't' && first != 'f') return false;
  const bool null = EqualIgnoringCase(word, "null");
  if (!null && !EqualIgnoringCase(word, "true") && !EqualIgnoringCase(word, "false")) return false;
  if (last_ == Last::kDot || behind_ == Behind::kIs || behind_ == Behind::kIsNot) return false;
  if (null && (behind_ == Behind::kNot || behind_ == Behind::kSet)) return false;
  return pending_semicolon_ || !OperandBefore();
}

void StatementFolder::AddWord(std::string_view word, Last kind) {
  const Behind was = behind_;
  if (kind == Last::kWord && IsValueWord(word)) {
    AddValue();
    return;
  }
  const Rows rows = levels_.back().rows;
  BeforeOther();
  const bool behind_sign = last_ == Last::kSign;
  Append(word);
  const std::size_t begin = text_.size() - word.size();
  last_ = kind;
  last_word_begin_ = begin;
  if (kind == Last::kName) return;
  std::transform(text_.begin() + static_cast<std::ptrdiff_t>(begin), text_.end(),
                 text_.begin() + static_cast<std::ptrdiff_t>(begin), Lower);
  const std::string_view lower = LastWord();
  // Nearly every word is none of these.
  const char first = lower[0];
  if (first != 'i' && first != 'n' && first != 'r' && first != 's' && first != 'v') return;
  if (lower == "in" && was == Behind::kNot) {
    // As the product writes what it makes of NOT (a IN ...).
    constexpr std::string_view kNotIn = "NOT IN";
    text_.replace(text_.size() - kNotIn.size(), kNotIn.size(), kNotIn);
  } else if (lower == "is") {
    behind_ = Behind::kIs;
  } else if (lower == "not") {
    behind_ = was == Behind::kIs ? Behind::kIsNot : Behind::kNot;
  } else if (lower == "set") {
    behind_ = Behind::kSet;
  } else if (lower == "values" || (lower == "value" && dialect_ == Dialect::kMysql)) {
    Level& level = levels_.back();
    level.rows = Rows::kExpected;
    level.first_row_end = 0;
    level.rows_cut = lower == "values";
    level.call = behind_sign;
  } else if (lower == "row" && (rows == Rows::kExpected || rows == Rows::kComma)) {
    // MySQL's VALUES ROW(1), ROW(2), which the product doesn't cut.
    levels_.back().rows = rows;
    levels_.back().rows_cut = false;
  }
}

void StatementFolder::Dot() {
  BeforeOther();
  Group& group = levels_.back().group;
  // An operand of a comparison has one dot, behind its first word.
  const bool first =
      last_ == Last::kWord && (last_word_begin_ == 0 || text_[last_word_begin_ - 1] != '.');
  if (first && group == Group::kOperator) {
    group = Group::kLeft;
  } else {
    group = first && group == Group::kAnd ? Group::kRight : Group::kNone;
  }
  text_ += '.';
  last_ = Last::kDot;
}

void StatementFolder::AddValue() {
  if (pending_semicolon_) FlushPending();
  pending_signs_.clear();
  Append(kValueWord);
  last_ = Last::kValue;
  Level& level = levels_.back();
  level.AddElement(text_.size());
  if (level.rows != Rows::kWithin) level.rows = Rows::kNone;
}

void StatementFolder::Open() {
  FlushPending();
  Level& level = levels_.back();
  const bool row = level.rows == Rows::kExpected || level.rows == Rows::kComma;
  level.rows = row ? Rows::kWithin : Rows::kNone;
  Append("(");
  last_ = Last::kSign;
  levels_.push_back({.begin = text_.size() - 1, .group = Group::kLeft});
}

void StatementFolder::Close() {
  FlushPending();
  last_ = Last::kClose;
  if (levels_.size() == 1) {
    levels_.back().list = false;
    text_ += ')';
    return;
  }
  const Level closed = levels_.back();
  levels_.pop_back();
  if (closed.group == Group::kAnd) {
    CloseGroup(closed.begin);
    return;
  }
  const bool list = closed.list && !closed.value_due;
  if (list) {
    text_.resize(closed.first_end);
    Append(kMoreWord);
  }
  Level& level = levels_.back();
  // The product cuts behind no row without a byte in it.
  if (level.rows == Rows::kWithin && text_.back() == '(') text_ += ' ';
  // As the product's rules for parentheses want it, like the dots.
  text_ += ')';
  level.nested = true;
  level.group = Group::kNone;
  if (level.rows == Rows::kWithin) {
    level.rows = Rows::kBehind;
    const bool first = level.first_row_end == 0;
    if (first) {
      level.first_row_end = text_.size();
      // It looks for a comma behind the first closing parenthesis.
      if (closed.nested) level.rows_cut = false;
    } else {
      text_.resize(level.first_row_end);
    }
    // With a comma behind it, one row is cut as several are.
    if (level.rows_cut && (!first || list || !level.call)) text_ += ',';
  }
  if (list) {
    level.AddElement(text_.size());
  } else {
    level.list = false;
  }
}

// Takes away the parentheses around a group that begins at `begin` in the text.
void StatementFolder::CloseGroup(std::size_t begin) {
  text_[begin] = ' ';
  Level& level = levels_.back();
  level.group = level.group == Group::kLeft ? Group::kAnd : Group::kNone;
  level.list = false;
}

void StatementFolder::Comma() {
  FlushPending();
  Append(",");
  last_ = Last::kSign;
  Level& level = levels_.back();
  if (level.value_due) level.list = false;
  level.value_due = true;
  level.rows = level.rows == Rows::kBehind ? Rows::kComma : Rows::kNone;
}

void StatementFolder::Level::AddElement(std::size_t end) noexcept {
  if (!value_due) list = false;
  value_due = false;
  if (first_end == 0) first_end = end;
}

// Before a token that is no value, comma or parenthesis.
void StatementFolder::BeforeOther() {
  if (pending_semicolon_ || !pending_signs_.empty()) FlushPending();
  levels_.back().list = false;
  levels_.back().rows = Rows::kNone;
}

// Adds what waited for the next token to tell what it is.
void StatementFolder::FlushPending() {
  if (pending_semicolon_) {
    pending_semicolon_ = false;
    levels_.assign(1, Level{});
    Append(";");
    last_ = Last::kSign;
  }
  if (pending_signs_.empty()) return;
  levels_.back().list = false;
  levels_.back().rows = Rows::kNone;
  for (const char& sign : pending_signs_) Append({&sign, 1});
  pending_signs_.clear();
  last_ = Last::kSign;
}

void StatementFolder::Append(std::string_view token) {
  if (!text_.empty() && last_ != Last::kDot) text_ += ' ';
  text_ += token;
  behind_ = Behind::kOther;
  Group& group = levels_.back().group;
  if (group != Group::kNone) group = NextInGroup(group, token);
}

StatementFolder::Group StatementFolder::NextInGroup(Group due, std::string_view token) {
  const auto operand = [token] { return std::all_of(token.begin(), token.end(), IsProductWord); };
  switch (due) {
    case Group::kLeft:
      if (token == "(") return due;
      return operand() ? Group::kOperator : Group::kNone;
    case Group::kOperator:
      for (const char* comparison : {"=", ">=", "<=", ">", "<", "!="}) {
        if (token == comparison) return Group::kRight;
      }
      return Group::kNone;
    case Group::kRight:
      return operand() ? Group::kAnd : Group::kNone;
    case Group::kAnd:
      return EqualIgnoringCase(token, "and") ? Group::kLeft : Group::kNone;
    case Group::kNone:
      break;
  }
  return Group::kNone;
}

bool StatementFolder::OperandBefore() const {
  if (last_ != Last::kWord) {
    return last_ == Last::kName || last_ == Last::kValue || last_ == Last::kClose;
  }
  return !std::binary_search(kWordsBeforeValues.begin(), kWordsBeforeValues.end(), LastWord());
}

std::string_view StatementFolder::LastWord() const {
  return std::string_view(text_).substr(last_word_begin_);
}

void StatementFolder::ShowPlaces(std::string& canonical) {
  // The result is never longer.
  std::size_t to = 0;
  bool quoted = false;
  for (std::size_t at = 0; at < canonical.size();) {
    const char c = canonical[at];
    if (c != '_' && c != '`' && c != '"') {
      canonical[to++] = c;
      ++at;
      continue;
    }
    const std::string_view rest = std::string_view(canonical).substr(at);
    if (c == '_' && (at == 0 || !IsWord(canonical[at - 1])) && rest.starts_with(kWordsPrefix)) {
      const bool value = rest.starts_with(kValueWord);
      const bool more = rest.starts_with(kMoreWord);
      if ((value || more) &&
          (rest.size() == kValueWord.size() || !IsWord(rest[kValueWord.size()]))) {
        // The blank before gives way to the comma.
        if (more && to > 0) --to;
        for (const char shown : std::string_view(value ? "?" : ", ...")) canonical[to++] = shown;
        at += kValueWord.size();
        continue;
      }
    }
    // The product parts quotes from the name within.
    const bool quote = c == '`' || c == '"';
    if (quote && quoted && to > 0 && canonical[to - 1] == ' ') --to;
    canonical[to++] = c;
    ++at;
    if (quote) quoted = !quoted;
    if (quote && quoted && at < canonical.size() && canonical[at] == ' ') ++at;
  }
  canonical.resize(to);
}

}  // namespace tarn::host

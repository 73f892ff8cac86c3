#include "shapes/shape_rules.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "sql/lexer.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

constexpr std::string_view kPlaceholder = "?";

// The properties of a word that the rules use, as bits.
enum WordTraits : std::uint16_t {
  kCapitals = 1U << 0U,     // written in capitals, as the product does
  kBeforeValue = 1U << 1U,  // a value may follow, so that a sign belongs to it
  kReserved = 1U << 2U,     // means something else without quotes
  kBeforeName = 1U << 3U,   // begins a statement in which a name follows that programs number
  kPassedOver = 1U << 4U,   // may be between the word and that name
  kIs = 1U << 5U,
  kNot = 1U << 6U,
  kSet = 1U << 7U,
  kValues = 1U << 8U,
  kRow = 1U << 9U,
  kArray = 1U << 10U,
};

struct WordList {
  std::uint16_t traits;
  std::string_view words;
};

// A word has the traits of all lists that it is in.
constexpr WordList kWordLists[] = {
    {kCapitals | kReserved, "select from insert update delete where values"},
    {kBeforeValue | kReserved,
     "all and any as between by case default distinct div else elseif except exists for from "
     "having "
     "if ilike in intersect interval into is join lateral like limit mod not offset on or over "
     "regexp return returning rlike select set similar some then to union using values when where "
     "with xor"},
    {kBeforeValue,
     "binary call do elsif escape fetch materialized maxvalue minvalue print top until while"},
    {kReserved,
     "array asc authorization both cast check collate column constraint create cross current_date "
     "current_role current_time current_timestamp current_user declare desc drop end false fetch "
     "foreign full grant group inner leading left localtime localtimestamp natural null order "
     "outer "
     "primary references right session_user table trailing true unique user window"},
    {kBeforeName, "savepoint release rollback declare fetch close prepare execute deallocate"},
    {kPassedOver,
     "absolute all backward first forward from in last next prepare prior relative savepoint to "
     "tran transaction work"},
    {kIs, "is"},
    {kNot, "not"},
    {kSet, "set"},
    {kValues, "values"},
    {kRow, "row"},
    {kArray, "array"},
};

// The words of the lists in a hash table. The words are fixed, so no input can make a search take
// more than a few steps.
class Vocabulary {
 public:
  constexpr Vocabulary() noexcept {
    for (const WordList& list : kWordLists) {
      std::string_view words = list.words;
      while (!words.empty()) {
        const std::string_view word = words.substr(0, words.find(' '));
        words.remove_prefix(std::min(word.size() + 1, words.size()));
        std::size_t slot = Hash(word);
        while (!slots_[slot].word.empty() && slots_[slot].word != word) slot = Next(slot);
        slots_[slot].word = word;
        slots_[slot].traits = static_cast<std::uint16_t>(slots_[slot].traits | list.traits);
      }
    }
  }

  // `word` in lower case; 0 when it is in no list.
  constexpr std::uint16_t TraitsOf(std::string_view word) const noexcept {
    if (word.size() < 2) return 0;
    std::size_t slot = Hash(word);
    while (!slots_[slot].word.empty() && slots_[slot].word != word) slot = Next(slot);
    return slots_[slot].traits;
  }

 private:
  struct Slot {
    std::string_view word;
    std::uint16_t traits = 0;
  };

  static constexpr std::size_t kSlots = 512;

  static constexpr std::size_t Hash(std::string_view word) noexcept {
    const auto byte = [word](std::size_t at) -> std::size_t {
      return static_cast<unsigned char>(word[at]);
    };
    return (word.size() * 77 + byte(0) * 5 + byte(1) * 47 + byte(word.size() - 1) * 131) % kSlots;
  }
  static constexpr std::size_t Next(std::size_t slot) noexcept { return (slot + 1) % kSlots; }

  std::array<Slot, kSlots> slots_{};
};

constexpr Vocabulary kVocabulary;

// The kinds of the last token that the meaning of the next one depends on.
enum class Last : unsigned char {
  kNothing,
  kWord,
  kName,         // in quotes
  kBeforeValue,  // a word after which a value may be
  kText,
  kValue,
  kOpen,
  kClose,
  kComma,
  kDot,
  kSign
};

// The state of the rows after VALUES.
enum class Rows : unsigned char { kNone, kExpected, kWithin, kAfter, kComma };

// An open pair of parentheses, the open brackets of an ARRAY, or the statement itself.
struct Level {
  // The offsets in the shape at which the first element and the first row end; 0 before that.
  std::size_t first_end = 0;
  std::size_t first_row_end = 0;
  Rows rows = Rows::kNone;
  bool array = false;
  // Whether it follows a name, as in f(a).
  bool call = false;
  // Whether it holds only values with commas between them so far, and whether a value is due, as
  // after "(" and ",".
  bool list = true;
  bool value_due = true;
};

bool IsPlainName(std::string_view name) noexcept {
  return !name.empty() && !IsDigit(name[0]) && name[0] != '$' &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return IsWord(c) && Lower(c) == c && static_cast<unsigned char>(c) < 0x80;
         });
}

// Writes the shape of one statement, or of several with semicolons between them, token by token.
class ShapeWriter {
 public:
  ShapeWriter(const ShapeOptions& options, std::string& shape) : options_(options), shape_(shape) {
    constexpr std::size_t kUsualDepth = 8;
    levels_.reserve(kUsualDepth);
    shape_.clear();
    BeginStatement();
  }

  void Add(const Token& token) {
    if (token.Is(';')) {
      // A semicolon at the end is dropped.
      semicolon_ = !shape_.empty();
      return;
    }
    if (semicolon_) {
      Write(";", true);
      BeginStatement();
    }
    switch (token.kind) {
      case TokenKind::kText:
        // Adjacent texts are one text: 'a' 'b'
        if (last_ != Last::kText) AddValue(Last::kText);
        return;
      case TokenKind::kNumber:
      case TokenKind::kParameter:
        AddValue(Last::kValue);
        return;
      case TokenKind::kWord:
        if (IsValueWord(token.text)) {
          AddValue(Last::kValue);
        } else {
          AddWord(token.text);
        }
        break;
      case TokenKind::kQuotedName:
        AddQuotedName(token.text);
        break;
      default:
        AddSign(token);
    }
  }

 private:
  void BeginStatement() {
    levels_.assign(1, Level{});
    deeper_ = 0;
    last_ = Last::kNothing;
    context_ = 0;
    signs_begin_ = kNoPlace;
    semicolon_ = name_due_ = false;
  }

  // Values become "?", numbers with their signs:
  //   x = 'a' and y > - 5  ->  x = ? and y > ?
  void AddValue(Last kind) {
    if (AfterUnarySigns()) shape_.resize(signs_begin_);
    signs_begin_ = kNoPlace;
    Write(kPlaceholder);
    AddElement();
    last_ = kind;
    context_ = 0;
  }

  // NULL, TRUE and FALSE are values if a value may follow the word before:
  //   x = null, y is null  ->  x = ?, y is null
  bool IsValueWord(std::string_view word) const noexcept {
    // Ends the search for most words.
    const char first = Lower(word[0]);
    if (first != 'n' && first != 't' && first != 'f') return false;
    const bool null = EqualIgnoringCase(word, "null");
    const bool truth = EqualIgnoringCase(word, "true") || EqualIgnoringCase(word, "false");
    if (!null && !truth) return false;
    // NOT NULL declares a column, and SET NULL an action on deletion.
    if ((context_ & kIs) != 0 || (null && (context_ & (kNot | kSet)) != 0)) return false;
    return last_ != Last::kDot && !OperandBefore();
  }

  // Signs wait for the token after them:
  //   select - 5, - a  ->  SELECT ?, - a
  void AddUnarySign(std::string_view sign) {
    if (!AfterUnarySigns()) signs_begin_ = shape_.size();
    Write(sign);
    last_ = Last::kSign;
  }

  // A list of values, or of such lists, loses its length:
  //   a in (1, 2, 3), f(1), array[[1, 2], [3]]  ->  a in (?, ...), f(?, ...), array[[?, ...], ...]
  void FoldList(const Level& list) {
    shape_.resize(list.first_end);
    shape_ += ", ...";
  }

  // The rows of VALUES become the first of them:
  //   values (a, 1), (b, 2) returning c  ->  VALUES (a, ?) returning c
  void FoldRow() {
    Level& level = levels_.back();
    if (level.first_row_end == 0) {
      level.first_row_end = shape_.size();
    } else {
      shape_.resize(level.first_row_end);
    }
    level.rows = Rows::kAfter;
  }

  // A name with a digit becomes "?" in a statement about an object that programs number:
  //   rollback to savepoint sp_17  ->  rollback to savepoint ?
  void FoldNumberedName(std::size_t begin) {
    if (std::none_of(shape_.begin() + static_cast<std::ptrdiff_t>(begin), shape_.end(), IsDigit)) {
      return;
    }
    shape_.resize(begin);
    shape_ += kPlaceholder;
  }

  // On request, the digits of a name, with any "_" between them, become "?":
  //   orders_2024_11  ->  orders_?
  void FoldDigits(std::size_t begin) {
    const auto digit = [this](std::size_t at) { return at < shape_.size() && IsDigit(shape_[at]); };
    std::size_t to = begin;
    for (std::size_t at = begin; at < shape_.size(); ++at) {
      const bool folds = digit(at);
      while (folds && (digit(at + 1) || (shape_[at + 1] == '_' && digit(at + 2)))) ++at;
      shape_[to++] = folds ? kPlaceholder[0] : shape_[at];
    }
    shape_.resize(to);
  }

  void FoldName(std::size_t begin, bool numbered) {
    if (numbered) {
      FoldNumberedName(begin);
    } else if (options_.fold_digits) {
      FoldDigits(begin);
    }
    name_due_ = false;
  }

  // Words become lower-case, except for the seven that the product writes in capitals:
  //   Select A From B  ->  SELECT a FROM b
  void AddWord(std::string_view word) {
    const Rows rows = levels_.back().rows;
    const bool call = levels_.back().call;
    was_list_ = levels_.back().list && levels_.back().value_due && !AfterUnarySigns();
    Spoil();
    Write(word);
    const std::size_t begin = shape_.size() - word.size();
    char* const written = shape_.data() + begin;
    std::transform(written, written + word.size(), written, Lower);
    const bool qualified = last_ == Last::kDot;
    const std::uint16_t traits =
        qualified ? 0 : kVocabulary.TraitsOf(std::string_view(shape_).substr(begin));
    if (traits == 0) {
      FoldName(begin, name_due_ && word[0] != '@');
    } else if (last_ == Last::kNothing) {
      name_due_ = (traits & kBeforeName) != 0;
    } else {
      name_due_ = name_due_ && (traits & kPassedOver) != 0;
    }
    if ((traits & kCapitals) != 0) {
      for (std::size_t at = begin; at < shape_.size(); ++at) {
        shape_[at] = static_cast<char>(shape_[at] - 'a' + 'A');
      }
    }
    const bool values = (traits & kValues) != 0 || (RulesOf(options_.dialect).value_is_values &&
                                                    !qualified && EqualIgnoringCase(word, "value"));
    // In b = values(a) it is a function.
    if (values && !call && last_ != Last::kSign) {
      levels_.back().rows = Rows::kExpected;
      levels_.back().first_row_end = 0;
    } else if ((traits & kRow) != 0 && (rows == Rows::kExpected || rows == Rows::kComma)) {
      // VALUES ROW(1), ROW(2)
      levels_.back().rows = rows;
    }
    // IS NOT keeps the traits of both words.
    context_ =
        (traits & kNot) != 0 ? static_cast<std::uint16_t>(traits | (context_ & kIs)) : traits;
    last_ = (traits & kBeforeValue) != 0 ? Last::kBeforeValue : Last::kWord;
  }

  // The quotes around a name are dropped if it means the same without them:
  //   "a"."B", "select"  ->  a."B", "select"
  void AddQuotedName(std::string_view name) {
    Spoil();
    if (name.size() > 2 && name.front() == name.back() && !IsWord(name.front())) {
      const std::string_view inner = name.substr(1, name.size() - 2);
      const bool reserved = last_ != Last::kDot && (kVocabulary.TraitsOf(inner) & kReserved) != 0;
      if (IsPlainName(inner) && !reserved) name = inner;
    }
    Write(name);
    const std::size_t begin = shape_.size() - name.size();
    // The U of U&"a".
    shape_[begin] = Lower(shape_[begin]);
    FoldName(begin, name_due_);
    last_ = Last::kName;
    context_ = 0;
  }

  void AddSign(const Token& token) {
    const char sign = token.text.size() == 1 ? token.text[0] : '\0';
    if ((sign == '+' || sign == '-') && !OperandBefore()) {
      AddUnarySign(token.text);
      return;
    }
    if (AfterUnarySigns()) Spoil();
    name_due_ = false;
    if (sign == '(' || (sign == '[' && BeginsArray())) {
      Open(sign);
    } else if (sign == ')' || (sign == ']' && levels_.back().array)) {
      Close(sign);
    } else if (sign == ',') {
      AddComma();
    } else {
      Spoil();
      const bool attached = sign == '.' || sign == ']' || token.text == "::" ||
                            token.text == ".." || (sign == '[' && OperandBefore());
      // Both mean the same.
      Write(token.text == "!=" ? "<>" : token.text, attached);
      last_ = sign == '.' ? Last::kDot : sign == ']' ? Last::kClose : Last::kSign;
    }
    context_ = 0;
  }

  // Whether "[" would begin a list, as in ARRAY[1] and ARRAY[[1], [2]].
  bool BeginsArray() const noexcept {
    if (deeper_ > 0) return false;
    return (context_ & kArray) != 0 ||
           (levels_.back().array && (last_ == Last::kOpen || last_ == Last::kComma));
  }

  void Open(char sign) {
    // Deeper lists are not folded, so that memory is bounded.
    constexpr std::size_t kMostLevels = 10'000;
    Level& level = levels_.back();
    const bool row = level.rows == Rows::kExpected || level.rows == Rows::kComma;
    level.rows = row ? Rows::kWithin : Rows::kNone;
    // The word ARRAY has ended the list, but the array is an element of it.
    if ((context_ & kArray) != 0 && sign == '[') level.list = was_list_;
    const bool call = last_ == Last::kWord || last_ == Last::kName;
    Write({&sign, 1}, call);
    last_ = Last::kOpen;
    if (levels_.size() < kMostLevels) {
      levels_.push_back({.array = sign == '[', .call = call});
    } else {
      ++deeper_;
      levels_.back().list = false;
    }
  }

  void Close(char sign) {
    last_ = Last::kClose;
    if (deeper_ > 0 || levels_.size() == 1 || levels_.back().array != (sign == ']')) {
      if (deeper_ > 0) --deeper_;
      levels_.back().list = false;
      Write({&sign, 1}, true);
      return;
    }
    const Level closed = levels_.back();
    levels_.pop_back();
    const bool list = closed.list && !closed.value_due;
    if (list) FoldList(closed);
    Write({&sign, 1}, true);
    if (levels_.back().rows == Rows::kWithin) {
      FoldRow();
    } else if (list) {
      AddElement();
    } else {
      levels_.back().list = false;
    }
  }

  void AddComma() {
    Write(",", true);
    last_ = Last::kComma;
    Level& level = levels_.back();
    if (level.value_due) level.list = false;
    level.value_due = true;
    level.rows = level.rows == Rows::kAfter ? Rows::kComma : Rows::kNone;
  }

  // After a value, or a list of values.
  void AddElement() noexcept {
    Level& level = levels_.back();
    if (!level.value_due) level.list = false;
    level.value_due = false;
    if (level.first_end == 0) level.first_end = shape_.size();
    level.rows = Rows::kNone;
  }

  bool OperandBefore() const noexcept {
    return last_ == Last::kWord || last_ == Last::kName || last_ == Last::kText ||
           last_ == Last::kValue || last_ == Last::kClose;
  }

  // Called before a token that is no value, comma or parenthesis, and after signs without a value:
  // the level is no list of values any more.
  void Spoil() noexcept {
    signs_begin_ = kNoPlace;
    levels_.back().list = false;
    levels_.back().rows = Rows::kNone;
  }

  // Appends `token`, with a blank before it unless it is `attached`.
  void Write(std::string_view token, bool attached = false) {
    if (!attached && !shape_.empty()) {
      const char before = shape_.back();
      const bool begins = before == '(' || before == '[' || before == '.' ||
                          (before == ':' && shape_.ends_with("::"));
      if (!begins) shape_ += ' ';
    }
    shape_ += token;
  }

  bool AfterUnarySigns() const noexcept { return signs_begin_ != kNoPlace; }

  static constexpr std::size_t kNoPlace = std::string_view::npos;

  const ShapeOptions& options_;
  std::string& shape_;
  std::vector<Level> levels_;
  // The number of open parentheses that have no level in `levels_`.
  std::size_t deeper_ = 0;
  Last last_ = Last::kNothing;
  // The traits of the last word, or of the last two; 0 if the last token is no word.
  std::uint16_t context_ = 0;
  // Whether the level was a list before the last word.
  bool was_list_ = false;
  // The offset in the shape of the signs that belong to a value if one follows.
  std::size_t signs_begin_ = kNoPlace;
  bool semicolon_ = false;
  // Whether the next name is one that programs number.
  bool name_due_ = false;
};

}  // namespace

const std::string& ShapeMaker::MakeShape(std::string_view statement) {
  // A shape is rarely longer than its statement.
  shape_.reserve(statement.size());
  ShapeWriter writer(options_, shape_);
  Lexer lexer(statement, options_.dialect);
  for (Token token = lexer.Next(); token.kind != TokenKind::kEnd; token = lexer.Next()) {
    writer.Add(token);
  }
  return shape_;
}

}  // namespace tarn::host

#include "shapes/shape_rules.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>

#include "sql/lexer.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

// The properties of a word that the rules use, as bits.
enum WordTraits : std::uint16_t {
  kCapitals = 1U << 0U,     // written in capitals, as the product does
  kBeforeValue = 1U << 1U,  // a value may follow, so that a sign belongs to it
  kReserved = 1U << 2U,     // means something else without quotes
  kBeforeName = 1U << 3U,   // begins a statement in which a name follows that programs number
  kPassedOver = 1U << 4U,   // may be between the word and that name
  kBeforeNull = 1U << 5U,   // NULL after it is no value
  kBeforeTruth = 1U << 6U,  // TRUE and FALSE after it are no values
  kNot = 1U << 7U,
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
     "all and any as between by case default distinct div else elseif except exists for "
     "from having ilike in intersect interval into is join lateral like limit mod not "
     "offset on or over regexp return returning rlike select set similar some then to union "
     "using values when where with xor"},
    {kBeforeValue,
     "absolute binary call do elsif escape fetch materialized maxvalue minvalue move print "
     "relative top until while zone"},
    {kReserved,
     "array asc authorization both cast check collate column constraint create cross "
     "current_date current_role current_time current_timestamp current_user declare desc "
     "drop end false fetch foreign full grant group if inner leading left localtime "
     "localtimestamp natural null order outer primary references right session_user table "
     "trailing true unique user window"},
    {kBeforeName, "savepoint release rollback declare fetch close prepare execute deallocate"},
    {kPassedOver,
     "absolute all backward first forward from in last next prepare prior relative "
     "savepoint to tran transaction work"},
    // IS TRUE, NOT NULL in the declaration of a column, SET NULL as an action on deletion.
    {kBeforeNull, "is not set"},
    {kBeforeTruth, "is"},
    {kNot, "not"},
    {kValues, "values"},
    {kRow, "row"},
    {kArray, "array"},
};

constexpr std::size_t kSlots = 512;
struct Slot {
  std::string_view word;
  std::uint16_t traits = 0;
};
using Vocabulary = std::array<Slot, kSlots>;

// The index of the slot of `word`, of at least two bytes, or of an empty slot.
constexpr std::size_t Find(const Vocabulary& vocabulary, std::string_view word) noexcept {
  const auto byte = [word](std::size_t at) -> std::size_t {
    return static_cast<unsigned char>(word[at]);
  };
  std::size_t slot = word.size() * 77 + byte(0) * 5 + byte(1) * 47 + byte(word.size() - 1) * 131;
  while (!vocabulary[slot % kSlots].word.empty() && vocabulary[slot % kSlots].word != word) ++slot;
  return slot % kSlots;
}

// The words of the lists in a hash table. The words are fixed, so no input can make a search take
// more than a few steps.
constexpr Vocabulary kVocabulary = [] {
  Vocabulary vocabulary;
  for (const WordList& list : kWordLists) {
    for (std::string_view rest = list.words; !rest.empty();) {
      const std::string_view word = rest.substr(0, rest.find(' '));
      rest.remove_prefix(std::min(word.size() + 1, rest.size()));
      Slot& slot = vocabulary[Find(vocabulary, word)];
      slot = {word, static_cast<std::uint16_t>(slot.traits | list.traits)};
    }
  }
  return vocabulary;
}();

// `word` in lower case; 0 if it is in no list.
std::uint16_t TraitsOf(std::string_view word) noexcept {
  return word.size() < 2 ? std::uint16_t{0} : kVocabulary[Find(kVocabulary, word)].traits;
}

// The kinds of the last token that the meaning of the next one depends on.
enum class Last : unsigned char {
  kNothing,
  kBeforeValue,  // a word after which a value may be
  kOpen,
  // VALUES after these begins no rows.
  kComma,
  kDot,  // or another sign that attaches the next name: o.a  5::int  db..o
  kSign,
  kUnarySign,
  // After these an operand has ended.
  kWord,
  kText,
  kValue,
  kClose,
};

// An open pair of parentheses, the open brackets of an ARRAY, or the statement itself. Its items
// are those between commas.
enum class State : unsigned char {
  kValueDue,  // all items so far are values, or lists of values, and one is due
  kValue,
  kRowDue,  // after VALUES, or after the comma after a row
  kRow,
  kOther
};
struct Level {
  // Sets `first_end`, unless an item before has set it.
  void EndFirst(std::size_t end) noexcept {
    constexpr std::uint64_t kMost = (std::uint64_t{1} << 48U) - 1;
    if (first_end == 0) first_end = end & kMost;
  }

  State state : 8 = State::kValueDue;
  bool array : 1 = false;
  // Whether it follows a name, as in f(a).
  bool call : 1 = false;
  // The offset in the shape at which the first value or row ends; 0 before that.
  std::uint64_t first_end : 48 = 0;
};
// A statement may be nothing but parentheses.
static_assert(sizeof(Level) == 8);

// The shape of a statement without tokens. Shapes hold no comments, so no other statement has it.
constexpr std::string_view kNoTokens = "/* empty */";

bool IsPlainName(std::string_view name) noexcept {
  return !name.empty() && !IsDigit(name[0]) && name[0] != '$' &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return IsWord(c) && Lower(c) == c && static_cast<unsigned char>(c) < 0x80;
         });
}

}  // namespace

// Writes the shape of one statement, or of several with semicolons between them, token by token.
class ShapeMaker::Writer {
 public:
  explicit Writer(const ShapeOptions& options)
      : options_(options), rules_(RulesOf(options.dialect)) {}

  const std::string& Write(std::string_view statement) {
    shape_.clear();
    // A shape is rarely longer than its statement.
    shape_.reserve(statement.size());
    BeginStatement();
    Lexer lexer(statement, options_.dialect);
    for (Token token = lexer.Next(); token.kind != TokenKind::kEnd;) {
      const Token next = lexer.Next();
      Add(token, next);
      token = next;
    }
    if (shape_.empty()) shape_ = kNoTokens;
    return shape_;
  }

 private:
  // `next` is the token after it.
  void Add(const Token& token, const Token& next) {
    if (token.Is(';')) {
      // A semicolon at the end is dropped.
      semicolon_ = !shape_.empty();
      return;
    }
    if (semicolon_) {
      Append(";", true);
      BeginStatement();
    }
    switch (token.kind) {
      case TokenKind::kText:
        // Adjacent texts are one text: 'a' 'b'
        if (last_ != Last::kText) AddValue(Last::kText);
        break;
      case TokenKind::kValue:
        AddValue(Last::kValue);
        break;
      case TokenKind::kWord:
        if (IsValueWord(token.text)) {
          AddValue(Last::kValue);
        } else if (!IsCharacterSet(token.text, next)) {
          AddWord(token.text, next);
        }
        break;
      case TokenKind::kName:
        AddQuotedName(token.text);
        break;
      default:
        AddSign(token);
    }
  }

  void BeginStatement() {
    levels_.assign(1, Level{});
    last_ = Last::kNothing;
    traits_ = 0;
    semicolon_ = name_due_ = false;
  }

  // Values become "?", numbers with their signs:
  //   x = 'a' and y > - 5  ->  x = ? and y > ?
  void AddValue(Last kind) {
    const bool sign = last_ == Last::kUnarySign;
    if (sign) shape_.resize(signs_begin_);
    Append("?", sign);
    EndItem();
    last_ = kind;
    traits_ = 0;
  }

  // NULL, TRUE and FALSE are values if a value may follow the word before:
  //   x = null, y is null  ->  x = ?, y is null
  bool IsValueWord(std::string_view word) const noexcept {
    // Ends the search for most words.
    const char first = Lower(word[0]);
    if (first != 'n' && first != 't' && first != 'f') return false;
    const bool null = EqualIgnoringCase(word, "null");
    const bool truth = EqualIgnoringCase(word, "true") || EqualIgnoringCase(word, "false");
    return ((null && (traits_ & kBeforeNull) == 0) || (truth && (traits_ & kBeforeTruth) == 0)) &&
           last_ != Last::kDot && !OperandBefore();
  }

  // The name of a text's character set belongs to the text:
  //   x = _utf8 'a'  ->  x = ?
  bool IsCharacterSet(std::string_view word, const Token& next) const noexcept {
    if (!rules_.character_sets || word.size() == 1 || word[0] != '_') return false;
    // The text may be a number: _binary 0x1F
    return next.kind == TokenKind::kText ||
           (next.kind == TokenKind::kValue && next.text.size() > 2 && next.text[0] == '0' &&
            IsWord(next.text[1]) && !IsDigit(next.text[1]));
  }

  // A list of values, or of such lists, loses its length:
  //   a in (1, 2, 3), f(1), array[[1, 2], [3]]  ->  a in (?, ...), f(?, ...), array[[?, ...], ...]
  void FoldList(const Level& list) {
    shape_.resize(list.first_end);
    shape_ += ", ...";
  }

  // Whether `word` may begin a value, a list or a row. A list of texts of one type loses its
  // length:
  //   (date '2026-01-01', date '2026-01-02')  ->  (date ?, ...)
  bool BeginsItem(std::string_view word, std::uint16_t traits, const Token& next) const {
    if (last_ == Last::kUnarySign) return false;
    // Unless the word is ARRAY, "[" begins no list.
    if (next.Is('[')) return true;
    const Level& level = levels_.back();
    // VALUES ROW(1), ROW(2)
    if ((traits & kRow) != 0) return level.state == State::kRowDue;
    return traits == 0 && next.kind == TokenKind::kText &&
           (level.first_end == 0 ||
            std::string_view(shape_)
                .substr(0, level.first_end)
                .ends_with((level.array ? '[' : '(') + std::string(word) + " ?"));
  }

  // So does a list of values that are cast to one type:
  //   ('a'::date, 'b'::date)  ->  (?::date, ...)
  void EndCast(Level& list, std::size_t begin) const {
    const std::string_view shape = shape_;
    const std::string_view cast = shape.substr(begin);
    if (list.first_end == begin) {
      list.first_end = 0;
      list.EndFirst(shape.size());
    } else if (!shape.substr(0, list.first_end).ends_with(cast)) {
      list.state = State::kOther;
    }
  }

  // The rows of VALUES become the first of them:
  //   values (a, 1), (b, 2) returning c  ->  VALUES (a, ?) returning c
  void FoldRow(Level& level) {
    level.state = State::kRow;
    level.EndFirst(shape_.size());
    shape_.resize(level.first_end);
  }

  // A name with a digit becomes "?" in a statement about an object that programs number:
  //   rollback to savepoint sp_17  ->  rollback to savepoint ?
  void FoldNumberedName(std::size_t begin) {
    if (shape_.find_first_of("0123456789", begin) == std::string::npos) return;
    shape_.resize(begin);
    shape_ += '?';
  }

  // On request, the digits of a name, with any "_" between them, become "?":
  //   orders_2024_11  ->  orders_?
  void FoldDigits(std::size_t begin) {
    const auto digit = [this](std::size_t at) { return at < shape_.size() && IsDigit(shape_[at]); };
    std::size_t to = begin;
    for (std::size_t at = begin; at < shape_.size(); ++at) {
      const bool folds = digit(at);
      while (folds && (digit(at + 1) || (shape_[at + 1] == '_' && digit(at + 2)))) ++at;
      shape_[to++] = folds ? '?' : shape_[at];
    }
    shape_.resize(to);
  }

  // Folds the name that the shape ends with.
  void EndName(std::size_t begin, bool numbered) {
    if (numbered) {
      FoldNumberedName(begin);
    } else if (options_.fold_digits) {
      FoldDigits(begin);
    }
    name_due_ = false;
    last_ = Last::kWord;
    traits_ = 0;
  }

  // Words become lower-case, except for the seven that the product writes in capitals:
  //   Select A From B  ->  SELECT a FROM b
  void AddWord(std::string_view word, const Token& next) {
    Append(word);
    const std::size_t begin = shape_.size() - word.size();
    char* const written = shape_.data() + begin;
    std::transform(written, written + word.size(), written, Lower);
    const std::string_view lower(written, word.size());
    const std::uint16_t traits = last_ == Last::kDot ? std::uint16_t{0} : TraitsOf(lower);

    Level& level = levels_.back();
    const bool cast = last_ == Last::kDot && level.state == State::kValue;
    if (level.state != State::kOther && !cast && !BeginsItem(lower, traits, next)) {
      level.state = State::kOther;
    }
    const bool values =
        (traits & kValues) != 0 || (rules_.value_is_values && lower == "value" && OperandBefore());
    // In b = values(a) and f(values(a)) it is a function.
    if (values && !level.call && (OperandBefore() || last_ < Last::kComma)) {
      level.state = State::kRowDue;
      level.first_end = 0;
    }

    if (traits == 0) {
      EndName(begin, name_due_ && word[0] != '@');
      if (cast) EndCast(level, begin - std::string_view("::").size());
      return;
    }
    name_due_ = (traits & (last_ == Last::kNothing ? kBeforeName : kPassedOver)) != 0 &&
                (name_due_ || last_ == Last::kNothing);
    if ((traits & kCapitals) != 0) {
      std::transform(written, written + word.size(), written,
                     [](char c) { return static_cast<char>(c - 'a' + 'A'); });
    }
    // IS NOT has the traits of both words.
    traits_ = (traits & kNot) != 0 ? static_cast<std::uint16_t>(traits | traits_) : traits;
    last_ = (traits & kBeforeValue) != 0 ? Last::kBeforeValue : Last::kWord;
  }

  // The quotes around a name are dropped if it means the same without them:
  //   "a"."B", "select"  ->  a."B", "select"
  void AddQuotedName(std::string_view name) {
    levels_.back().state = State::kOther;
    if (name.front() == name.back() && !IsWord(name.front())) {
      const std::string_view inner = name.substr(1, name.size() - 2);
      const bool reserved = last_ != Last::kDot && (TraitsOf(inner) & kReserved) != 0;
      if (IsPlainName(inner) && !reserved) name = inner;
    }
    Append(name);
    const std::size_t begin = shape_.size() - name.size();
    // The U of U&"a".
    shape_[begin] = Lower(shape_[begin]);
    EndName(begin, name_due_);
  }

  void AddSign(const Token& token) {
    const char sign = token.text.size() == 1 ? token.text[0] : '\0';
    if ((sign == '+' || sign == '-') && !OperandBefore()) return AddUnarySign(token.text);
    name_due_ = false;
    if (sign == '(' || (sign == '[' && BeginsArray())) {
      Open(sign);
    } else if (sign == ')' || (sign == ']' && levels_.back().array)) {
      Close(sign);
    } else if (sign == ',') {
      AddComma();
    } else {
      const bool cast = token.text == "::" && levels_.back().state == State::kValue;
      if (!cast) levels_.back().state = State::kOther;
      const bool joins = sign == '.' || token.text == "::" || token.text == "..";
      const bool subscript = sign == '[' && OperandBefore();
      // Both mean the same.
      Append(token.text == "!=" ? "<>" : token.text, joins || subscript || sign == ']');
      last_ = joins         ? Last::kDot
              : sign == '[' ? Last::kOpen
              : sign == ']' ? Last::kClose
                            : Last::kSign;
    }
    traits_ = 0;
  }

  // Signs wait for the token after them:
  //   select - 5, - a  ->  SELECT ?, - a
  void AddUnarySign(std::string_view sign) {
    Append(sign);
    if (last_ != Last::kUnarySign) signs_begin_ = shape_.size() - sign.size();
    last_ = Last::kUnarySign;
  }

  // Whether "[" would begin a list, as in ARRAY[1] and ARRAY[[1], [2]].
  bool BeginsArray() const noexcept {
    return (traits_ & kArray) != 0 ||
           (levels_.back().array && (last_ == Last::kOpen || last_ == Last::kComma));
  }

  void Open(char sign) {
    const bool call = last_ == Last::kWord;
    if (last_ == Last::kUnarySign) levels_.back().state = State::kOther;
    Append({&sign, 1}, call);
    levels_.push_back({.array = sign == '[', .call = call});
    last_ = Last::kOpen;
  }

  void Close(char sign) {
    last_ = Last::kClose;
    if (levels_.size() == 1 || levels_.back().array != (sign == ']')) {
      levels_.back().state = State::kOther;
      Append({&sign, 1}, true);
      return;
    }
    const Level closed = levels_.back();
    levels_.pop_back();
    const bool list = closed.state == State::kValue;
    if (list) FoldList(closed);
    Append({&sign, 1}, true);
    Level& level = levels_.back();
    if (level.state == State::kRowDue) {
      FoldRow(level);
    } else if (list) {
      EndItem();
    } else {
      level.state = State::kOther;
    }
  }

  void AddComma() {
    Append(",", true);
    last_ = Last::kComma;
    Level& level = levels_.back();
    level.state = level.state == State::kValue ? State::kValueDue
                  : level.state == State::kRow ? State::kRowDue
                                               : State::kOther;
  }

  // Ends a value, or a list of values.
  void EndItem() noexcept {
    Level& level = levels_.back();
    level.state = level.state == State::kValueDue ? State::kValue : State::kOther;
    level.EndFirst(shape_.size());
  }

  bool OperandBefore() const noexcept { return last_ >= Last::kWord; }

  // Appends `token`, with a blank before it unless it is `attached`.
  void Append(std::string_view token, bool attached = false) {
    if (!attached && last_ != Last::kOpen && last_ != Last::kDot && !shape_.empty()) shape_ += ' ';
    shape_ += token;
  }

  const ShapeOptions options_;
  const DialectRules& rules_;
  std::string shape_;
  // A vector would need three times the memory as it grows.
  std::deque<Level> levels_;
  Last last_ = Last::kNothing;
  // The traits of the last token, if it is a word.
  std::uint16_t traits_ = 0;
  // The offset in the shape of the signs that belong to a value if one follows.
  std::size_t signs_begin_ = 0;
  bool semicolon_ = false;
  // Whether the next name is one that programs number.
  bool name_due_ = false;
};

ShapeMaker::ShapeMaker(const ShapeOptions& options) : writer_(std::make_unique<Writer>(options)) {}

ShapeMaker::~ShapeMaker() = default;

const std::string& ShapeMaker::MakeShape(std::string_view statement) {
  return writer_->Write(statement);
}

}  // namespace tarn::host

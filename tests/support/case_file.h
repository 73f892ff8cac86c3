// Test cases in text files, in tests/cases. All files have one grammar: sections, each with a
// heading and rows.
//
//   Heading
//     NAME word... [text] => [text]...
//
// A row is indented. Its name and its words may be missing; a comment at the top of the file lists
// the words and the texts. A line that begins with "=>" continues the row before. A line that ends
// with "\" continues on the next line, whose indentation is dropped. In a text "\n", "\t", "\r",
// "\v", "\f", "\\" and "\xHH" are escapes for bytes, as `tarn_host trace` prints them. Empty lines
// and lines that begin with "#" are ignored. No line is longer than 160 bytes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn::test {

// The texts of a row. Access to a text that the row does not have throws std::out_of_range with the
// row's position, so that a row with a missing column fails only its own test.
class CaseTexts : public std::vector<std::string> {
 public:
  explicit CaseTexts(std::string where) : where_(std::move(where)) {}

  const std::string& at(std::size_t index) const {
    if (index < size()) return data()[index];
    throw std::out_of_range(where_ + ": text " + std::to_string(index + 1) + " is missing");
  }
  const std::string& operator[](std::size_t index) const { return at(index); }
  const std::string& back() const { return at(empty() ? 0 : size() - 1); }

 private:
  std::string where_;
};

struct CaseRow {
  std::string section;
  std::string label;
  CaseTexts texts;
  // The position of the row, for example "tests/cases/tokens.txt:12", and its lines in the file.
  // For a malformed row `lines` gives the reason, and there are no texts.
  std::string where;
  std::string lines;

  // The label's words after the name.
  std::istringstream Words() const {
    return std::istringstream(label.substr(std::min(label.find(' '), label.size())));
  }

  // The name of the row's test: the section and the label's first word.
  std::string Id() const { return section + "_" + label.substr(0, label.find(' ')); }

  // GoogleTest prints a failing row with this.
  friend std::ostream& operator<<(std::ostream& stream, const CaseRow& row) {
    return stream << row.where << ": " << row.lines;
  }
};

// The names of tests, for INSTANTIATE_TEST_SUITE_P.
inline constexpr auto CaseName = [](const auto& info) { return info.param.Id(); };

inline std::string Unescaped(std::string_view text) {
  constexpr std::string_view kLetters = "ntrvf\\";
  constexpr std::string_view kBytes = "\n\t\r\v\f\\";
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      bytes += text[i];
    } else if (text.at(++i) == 'x') {
      bytes += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
      i += 2;
    } else {
      bytes += kBytes.at(kLetters.find(text[i]));
    }
  }
  return bytes;
}

// Appends the texts of "[a] => [b]" to `texts`. Returns the reason if the line is malformed,
// otherwise nothing.
inline std::string TakeTexts(std::string_view line, CaseTexts& texts) {
  constexpr std::string_view kBetween = "] => [";
  if (!line.starts_with('[') || !line.ends_with(']')) return "no [ and ] around the texts";
  line = line.substr(1, line.size() - 2);
  try {
    for (std::size_t end = 0; end != std::string_view::npos;) {
      end = line.find(kBetween);
      texts.push_back(Unescaped(line.substr(0, end)));
      if (end != std::string_view::npos) line.remove_prefix(end + kBetween.size());
    }
  } catch (const std::logic_error&) {
    return "an unknown escape";
  }
  return {};
}

inline constexpr std::size_t kLongestLine = 160;

// Whether `line` ends with a backslash that is not the second of a pair.
inline bool EndsOpen(std::string_view line) {
  const std::size_t other = line.find_last_not_of('\\');
  return (line.size() - (other == std::string_view::npos ? 0 : other + 1)) % 2 == 1;
}

// The rows of tests/cases/`name`, in order. The test of a malformed row fails.
inline std::vector<CaseRow> ReadCases(const std::string& name) {
  std::ifstream file(std::string(TARN_CASES "/") + name);
  if (!file) throw std::runtime_error("cannot read the cases in " + name);
  std::vector<CaseRow> rows;
  std::string section;
  int number = 0;
  for (std::string line, next; std::getline(file, line);) {
    ++number;
    bool too_long = line.size() > kLongestLine;
    while (!line.starts_with('#') && EndsOpen(line) && std::getline(file, next)) {
      ++number;
      too_long = too_long || next.size() > kLongestLine;
      line.pop_back();
      line += next.substr(std::min(next.find_first_not_of(' '), next.size()));
    }
    if (line.empty() || line[0] == '#') continue;
    if (line[0] != ' ') {
      section = line;
      continue;
    }
    const std::size_t begin = line.find_first_not_of(' ');
    const std::size_t open = std::min(line.find('['), line.size());
    const std::string label = open <= begin ? "" : line.substr(begin, open - 1 - begin);
    const std::string where = "tests/cases/" + name + ':' + std::to_string(number);
    if (label != "=>") rows.push_back({section, label, CaseTexts(where), where, {}});
    if (rows.empty()) throw std::runtime_error(where + ": a row that continues none");
    CaseRow& row = rows.back();
    row.lines += (row.lines.empty() ? "" : "\n") + line;
    std::string problem = TakeTexts(std::string_view(line).substr(open), row.texts);
    if (too_long) problem = "a line of more than 160 bytes";
    if (!problem.empty()) {
      row.lines = problem + ": " + row.lines;
      row.texts.clear();
    }
  }
  return rows;
}

}  // namespace tarn::test

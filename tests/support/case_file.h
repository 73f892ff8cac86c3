// Cases kept as text, in tests/cases: a file of sections, each a heading and its rows,
//
//   heading
//     label [text] => [text]
//
// A row is indented; its label may be empty and it has one text or more. The label "=>" continues
// the row before. "\n", "\t", "\r", "\v",
// "\f", "\\" and "\xHH" stand for bytes, as `tarn_host trace` prints them. Empty lines and lines
// that begin with "#" say nothing.
#pragma once

#include <fstream>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::test {

struct CaseRow {
  std::string section;
  std::string label;
  std::vector<std::string> texts;

  // Names the row's test: the section and the label's first word.
  std::string Id() const { return section + "_" + label.substr(0, label.find(' ')); }

  friend std::ostream& operator<<(std::ostream& stream, const CaseRow& row) {
    return stream << row.Id();
  }
};

// For INSTANTIATE_TEST_SUITE_P.
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

// The rows of tests/cases/`name`, in order.
inline std::vector<CaseRow> ReadCases(const std::string& name) {
  constexpr std::string_view kBetween = "] => [";
  std::ifstream file(std::string(TARN_CASES "/") + name);
  if (!file) throw std::runtime_error("cannot read the cases in " + name);
  std::vector<CaseRow> rows;
  std::string section;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line[0] != ' ') {
      section = line;
      continue;
    }
    const std::size_t label = line.find_first_not_of(' ');
    const std::size_t open = line.find('[');
    if (open == std::string::npos || line.back() != ']') throw std::runtime_error("odd: " + line);
    CaseRow row{section, open == label ? "" : line.substr(label, open - 1 - label), {}};
    const bool continues = row.label == "=>";
    std::vector<std::string>& texts = continues ? rows.back().texts : row.texts;
    std::string_view rest = std::string_view(line).substr(open + 1, line.size() - open - 2);
    for (std::size_t end = 0; end != std::string_view::npos;) {
      end = rest.find(kBetween);
      texts.push_back(Unescaped(rest.substr(0, end)));
      if (end != std::string_view::npos) rest.remove_prefix(end + kBetween.size());
    }
    if (!continues) rows.push_back(std::move(row));
  }
  return rows;
}

}  // namespace tarn::test

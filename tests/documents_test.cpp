// Checks the statements in the README, the manual and the completion as their readers would try
// them.
#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "dbconfig/ssl_mode.h"
#include "plugin/plugin.h"
#include "support/run_program.h"
#include "support/surroundings.h"
#include "support/tool.h"

namespace tarn::test {
namespace {

using Strings = std::vector<std::string>;

std::string Document(const std::string& name) {
  std::ifstream file(std::string(TARN_SOURCE "/") + name);
  std::ostringstream content;
  content << file.rdbuf();
  EXPECT_FALSE(content.str().empty()) << name;
  return content.str();
}

// All matches of `pattern` in `text`: the first group of each.
Strings Find(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern, std::regex::ECMAScript | std::regex::multiline);
  Strings found;
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end;
       ++match) {
    found.push_back((*match)[1]);
  }
  return found;
}

// The part of `text` from `begin` up to the next `end`.
std::string Part(const std::string& text, const std::string& begin, const std::string& end) {
  const std::size_t at = text.find(begin);
  EXPECT_NE(at, std::string::npos) << begin;
  if (at == std::string::npos) return {};
  return text.substr(at, text.find(end, at + begin.size()) - at);
}

// The rows of the README's table with that heading. A column is the texts between its backquotes.
std::vector<std::vector<Strings>> ReadmeTable(const std::string& heading) {
  std::istringstream lines(Part(Document("README.md"), heading + "\n", "\n\n"));
  std::vector<std::vector<Strings>> rows;
  std::string line;
  std::getline(lines, line);
  std::getline(lines, line);
  while (std::getline(lines, line)) {
    std::vector<Strings>& row = rows.emplace_back();
    for (const std::string& column : Find(line, R"(\| ((?:[^|\\]|\\.)*))")) {
      row.push_back(Find(column, "`([^`]*)`"));
    }
  }
  EXPECT_GT(rows.size(), 5U) << heading;
  return rows;
}

std::string Canonical(std::string sql) {
  static const host::Plugin kPlugin(TARN_PLUGIN_PATH);
  kPlugin.Product().NormalizeSQL(sql);
  return sql;
}

TEST(Readme, ExamplesOfTheCanonicalTextAreTrue) {
  for (const auto& row : ReadmeTable("| what | before | after |")) {
    ASSERT_EQ(row.at(1).size(), row.at(2).size()) << row.at(0).size();
    for (std::size_t i = 0; i < row[1].size(); ++i) {
      EXPECT_EQ(Canonical(row[1][i]), row[2][i]);
    }
  }
}

TEST(Readme, LimitsOfTheCanonicalTextAreTrue) {
  for (const auto& row : ReadmeTable("| statement | canonical text | because |")) {
    // The column "`a`, line break, `b`" is one statement, "`a` and `b`" is two.
    Strings statements = row.at(0);
    if (statements.size() > row.at(1).size()) {
      statements = {statements.at(0) + "\n" + statements.at(1)};
    }
    ASSERT_EQ(statements.size(), row[1].size()) << statements.at(0);
    for (std::size_t i = 0; i < statements.size(); ++i) {
      EXPECT_EQ(Canonical(statements[i]), row[1][i]);
    }
  }
}

TEST(Readme, ValuesWithOneKeyAreTrue) {
  for (const auto& row : ReadmeTable("| one value | another | because |")) {
    EXPECT_EQ(Canonical(row.at(0).at(0)), Canonical(row.at(1).at(0)));
  }
}

TEST(Readme, SSLModesAreTrue) {
  for (const auto& row : ReadmeTable("| the file says | mode | because |")) {
    if (row.at(1).size() != 1 || row[0].empty()) continue;
    std::string key;
    for (std::string text : row[0]) {
      // In "`"sslmode": "require"`, `"verify-full"`" the second value has the key of the first.
      if (text.find(':') == std::string::npos) text = key + text;
      key = text.substr(0, text.find(':') + 2);
      if (row[1].front() == "sslmode") continue;
      EXPECT_EQ(dbconfig::FindSSLMode("{" + text + "}").value_or("1"), row[1].front()) << text;
    }
  }
}

TEST(Documents, NameFilesThatExist) {
  const std::string file =
      R"(`((?:include|docs|examples|tests|src|tools|standin)/[a-z0-9_./]+\.[a-z0-9]+))";
  for (const char* document :
       {"README.md", "CONTRIBUTING.md", "docs/ARCHITECTURE.md", "docs/SECURITY.md"}) {
    for (const std::string& name : Find(Document(document), file)) {
      EXPECT_TRUE(std::filesystem::exists(TARN_SOURCE "/" + name)) << document << ": " << name;
    }
  }
}

#ifdef TARN_CXX
TEST(Readme, HostCompilesAndPrintsTheStatedText) {
  const std::string code = Part(Document("README.md"), "```cpp\n", "```\n").substr(7);
  const TemporaryFolder folder;
  const std::string source = folder.Write("host.cpp", code);
  const std::string program = folder.Path("host");
  const std::string include = TARN_SOURCE "/include";
  const RunResult compiled = RunProgram(
      {TARN_CXX, "-Wall", "-Wextra", "-Werror", source, "-I", include, "-ldl", "-o", program});
  ASSERT_EQ(compiled.exit_code, 0) << compiled.errors;
  RunOptions options;
  options.environment = {"LD_LIBRARY_PATH=" +
                         std::filesystem::path(TARN_PLUGIN_PATH).parent_path().string()};
  const Strings expected = Find(code, R"(<< sql << '\\n';\s+// (.*)$)");
  ASSERT_EQ(expected.size(), 1U);
  EXPECT_EQ(RunProgram({program}, options).output, expected.front() + '\n');
}
#endif

// The completions that bash offers for `words`, the last of which may be incomplete.
std::set<std::string> Completed(const Strings& words) {
  std::string script = ". \"$0\"; COMP_WORDS=(";
  for (const std::string& word : words) script += "'" + word + "' ";
  script += "); COMP_CWORD=" + std::to_string(words.size() - 1) +
            "; _tarn_host; printf '%s\\n' \"${COMPREPLY[@]}\"";
  const std::string completion = TARN_SOURCE "/tools/tarn_host/completion/tarn_host.bash";
  std::istringstream offered(RunProgram({"bash", "-c", script, completion}).output);
  std::set<std::string> found;
  for (std::string word; offered >> word;) found.insert(word);
  return found;
}

TEST(Options, AreInTheManualAndTheCompletionAsInHelp) {
  const std::string manual = Document("docs/tarn_host.1");
  const Strings commands =
      Find(Part(Tool({"--help"}).output, "Commands:\n", "\n\n"), R"(^  ([a-z]+) )");
  ASSERT_GE(commands.size(), 8U);
  for (const std::string& command : commands) {
    SCOPED_TRACE(command);
    EXPECT_EQ(Completed({"tarn_host", ""}).count(command), 1U);
    EXPECT_NE(manual.find(".It Cm " + command + "\n"), std::string::npos);
    const std::string synopsis = Part(manual, ".Nm\n.Cm " + command + "\n", "\n.Nm");
    const std::string help = Tool({command, "--help"}).output;
    const Strings listed = Find(help, R"((?:^  |,)--([a-z-]+))");
    std::set<std::string> options;
    for (const std::string& option : listed) {
      options.insert("--" + option);
      if (option == "help") continue;
      EXPECT_NE(synopsis.find("Fl -" + option), std::string::npos) << option;
      EXPECT_NE(manual.find(".It Fl -" + option), std::string::npos) << option;
      for (const std::string& names : Find(help, "--" + option + R"( [A-Z]+:\{([^}]*)\})")) {
        const Strings chosen = Find(names, "([^,]+)");
        const std::set<std::string> expected(chosen.begin(), chosen.end());
        EXPECT_EQ(Completed({"tarn_host", command, "--" + option, "=", ""}), expected) << option;
      }
    }
    EXPECT_EQ(Completed({"tarn_host", command, "--"}), options);
  }
}

}  // namespace
}  // namespace tarn::test

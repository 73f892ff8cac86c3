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
#include <vector>

#include "dbconfig/ssl_mode.h"
#include "plugin/plugin.h"
#include "support/run_program.h"
#include "support/surroundings.h"

namespace tarn::test {
namespace {

using Strings = std::vector<std::string>;

std::string Document(const std::string& name) {
  std::ostringstream content;
  content << std::ifstream(TARN_SOURCE "/" + name).rdbuf();
  EXPECT_FALSE(content.str().empty()) << name;
  return content.str();
}

// All matches of `pattern` in `text`: the first group of each.
Strings Find(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern, std::regex::ECMAScript | std::regex::multiline);
  std::sregex_token_iterator match(text.begin(), text.end(), expression, 1);
  return {match, {}};
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
  std::vector<std::vector<Strings>> rows;
  for (const std::string& line : Find(Part(Document("README.md"), heading, "\n\n"), "^(.+)$")) {
    std::vector<Strings>& row = rows.emplace_back();
    for (const std::string& column : Find(line, R"(\| ((?:[^|\\]|\\.)*))")) {
      row.push_back(Find(column, "`([^`]*)`"));
    }
  }
  EXPECT_GT(rows.size(), 7U) << heading;
  // The heading and the line below it.
  rows.erase(rows.begin(), rows.begin() + 2);
  return rows;
}

Strings Canonical(const Strings& statements) {
  static const host::Plugin kPlugin(TARN_PLUGIN_PATH);
  Strings texts = statements;
  for (std::string& sql : texts) kPlugin.Product().NormalizeSQL(sql);
  return texts;
}

TEST(Readme, CanonicalTextsAreTrue) {
  for (const auto& row : ReadmeTable("| what | before | after |")) {
    EXPECT_EQ(Canonical(row.at(1)), row.at(2));
  }
  for (const auto& row : ReadmeTable("| statement | canonical text | because |")) {
    // The column "`a`, line break, `b`" is one statement, "`a` and `b`" is two.
    Strings statements = row.at(0);
    if (statements.size() > row.at(1).size()) {
      statements = {statements.at(0) + "\n" + statements.at(1)};
    }
    EXPECT_EQ(Canonical(statements), row.at(1));
  }
  for (const auto& row : ReadmeTable("| one value | another | because |")) {
    EXPECT_EQ(Canonical(row.at(0)), Canonical(row.at(1)));
  }
}

TEST(Readme, SSLModesAreTrue) {
  for (const auto& row : ReadmeTable("| the file says | mode | because |")) {
    if (row.at(1).size() != 1 || row[1].front() == "sslmode") continue;
    std::string key;
    for (std::string text : row[0]) {
      // In "`"sslmode": "require"`, `"verify-full"`" the second value has the key of the first.
      if (text.find(':') == std::string::npos) text = key + text;
      key = text.substr(0, text.find(':') + 2);
      EXPECT_EQ(dbconfig::FindSSLMode("{" + text + "}").value_or("1"), row[1].front()) << text;
    }
  }
}

TEST(Documents, NameFilesThatExist) {
  for (const char* document :
       {"README.md", "CONTRIBUTING.md", "docs/ARCHITECTURE.md", "docs/SECURITY.md"}) {
    for (const std::string& name :
         Find(Document(document),
              "`((?!\\S*NAME)(?:include|docs|examples|tests|src|tools|standin)"
              "/[A-Za-z0-9_./]+\\.[a-z0-9]+)")) {
      EXPECT_TRUE(std::filesystem::exists(TARN_SOURCE "/" + name)) << document << ": " << name;
    }
  }
}

#ifdef TARN_CXX
TEST(Readme, HostCompilesAndPrintsTheStatedText) {
  const std::string code = Part(Document("README.md"), "```cpp\n", "```\n").substr(7);
  const TemporaryFolder folder;
  folder.Write("host.cpp", code);
  const RunResult result = RunProgram(
      {"/bin/sh", "-c", R"("$0" -Wall -Wextra -Werror host.cpp -I "$1" -ldl -o host && ./host)",
       TARN_CXX, std::string(TARN_SOURCE) + "/include"},
      {.environment = {"LD_LIBRARY_PATH=" TARN_PLUGIN_FOLDER}, .folder = folder.Path("")});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(Find(code, R"(<< sql << '\\n';\s+// (.*)$)"), Find(result.output, "^(.*)\n"));
}
#endif

// The completions that bash offers for `words`, the last of which may be incomplete.
std::set<std::string> Completed(const Strings& words) {
  Strings command{"/bin/bash", "-c",
                  R"(. "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _tarn_host;)"
                  R"(printf '%s\n' "${COMPREPLY[@]}")",
                  TARN_SOURCE "/tools/tarn_host/completion/tarn_host.bash"};
  command.insert(command.end(), words.begin(), words.end());
  const Strings offered = Find(RunProgram(command).output, R"((\S+))");
  return {offered.begin(), offered.end()};
}

TEST(Options, AreInTheManualAndTheCompletionAsInHelp) {
  const std::string manual = Document("docs/tarn_host.1");
  const Strings commands =
      Find(Part(RunProgram({TARN_HOST_PATH, "--help"}).output, "Commands:\n", "\n\n"),
           R"(^  ([a-z]+) )");
  ASSERT_GE(commands.size(), 8U);
  for (const std::string& command : commands) {
    SCOPED_TRACE(command);
    EXPECT_EQ(Completed({"tarn_host", ""}).count(command), 1U);
    EXPECT_NE(manual.find(".It Cm " + command + "\n"), std::string::npos);
    const std::string synopsis = Part(manual, ".Nm\n.Cm " + command + "\n", "\n.Nm");
    const std::string help = RunProgram({TARN_HOST_PATH, command, "--help"}).output;
    std::set<std::string> options;
    for (const std::string& option : Find(help, R"((?:^  |,)--([a-z-]+))")) {
      options.insert("--" + option);
      if (option == "help") continue;
      EXPECT_NE(synopsis.find("Fl -" + option), std::string::npos) << option;
      EXPECT_NE(manual.find(".It Fl -" + option), std::string::npos) << option;
      for (const std::string& names : Find(help, "--" + option + R"( [A-Z]+:\{([^}]*)\})")) {
        const Strings chosen = Find(names, "([^,]+)");
        EXPECT_EQ(Completed({"tarn_host", command, "--" + option, "=", ""}),
                  std::set<std::string>(chosen.begin(), chosen.end()));
      }
    }
    EXPECT_EQ(Completed({"tarn_host", command, "--"}), options);
  }
}

}  // namespace
}  // namespace tarn::test

// The command line: each command with its options and help. No other file includes CLI11, which
// takes the compiler several seconds.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "standin/key_file.h"
#include "tarn_host/commands.h"
#include "tarn_host/errors.h"
#include "tarn_host/output.h"

namespace tarn::host {
namespace {

struct CommandLine {
  // Adds a command and its options, which parsing sets. If the command is chosen, `run` gets them
  // and returns the exit code.
  template <typename Options>
  std::pair<CLI::App&, Options&> Add(const std::string& name, const std::string& help,
                                     int (*run)(const Options&)) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand(name, help);
    command->group("Commands");
    command->callback([this, options, run] { exit_code = run(*options); });
    return {*command, *options};
  }

  CLI::App app{"Uses the product plug-in as a host does, from the command line.", "tarn_host"};
  int exit_code = kExitSuccess;
};

CLI::Validator RefuseEmpty() {
  return {[](const std::string& text) { return text.empty() ? "the name is empty" : ""; }, ""};
}

// The name of a file, a library or a database. Parsing refuses an empty name: `--key "$UNSET"` in
// a script must not mean the default. Help shows `kind` for the name, as in "--key FILE".
CLI::Option* AddName(CLI::App& command, const std::string& name, std::string& value,
                     const std::string& kind, const std::string& help) {
  return command.add_option(name, value, help)->check(RefuseEmpty())->type_name(kind);
}

void AddFlag(CLI::App& command, const std::string& name, bool& value, const std::string& help) {
  // Without this, --json=0 would be taken, and so would --json=5.
  command.add_flag(name, value, help)->disable_flag_override();
}

// A whole number from 1 to `most`.
void AddCount(CLI::App& command, const std::string& name, std::uint64_t& value, std::uint64_t most,
              const std::string& help) {
  command.add_option(name, value, help)->check(CLI::Range(std::uint64_t{1}, most))->type_name("N");
}

// One of the names in `values`. Parsing writes the value of that name.
template <typename Chosen, typename Value>
void AddChoice(CLI::App& command, const std::string& name, Chosen& value,
               const std::map<std::string, Value>& values, const std::string& kind,
               const std::string& help) {
  command
      .add_option_function<std::string>(
          name, [&value, values](const std::string& chosen) { value = values.at(chosen); }, help)
      ->check(CLI::IsMember(values))
      ->type_name(kind);
}

void AddPlugin(CLI::App& command, std::string& path) {
  AddName(command, "--plugin", path, "PATH",
          "Load this library instead of the one beside the tool");
}

void AddInput(CLI::App& command, InputOptions& options,
              const std::map<std::string, const Format*>& formats) {
  // 1 TiB, more than memory holds.
  constexpr std::uint64_t kMostMib = std::uint64_t{1} << 20U;
  AddChoice(
      command, "--input", options.reading.format, formats, "FORMAT",
      "Format of the input: statements separated by semicolons (sql), newlines (lines) or NUL "
      "bytes (nul), MySQL's slow query log (slowlog) or general log (general), or PostgreSQL's "
      "log (pglog), CSV log (csvlog) or JSON log (jsonlog); by default recognised by its first "
      "lines");
  AddChoice(command, "--dialect", options.reading.dialect, Dialects(), "NAME",
            "SQL dialect, for quotes, comments and separators: mysql (the default, except for "
            "PostgreSQL's logs), ansi or postgres");
  AddName(command, "--prefix", options.reading.prefix, "FORMAT",
          "The log_line_prefix of a PostgreSQL log, if it is not one of the usual ones");
  AddCount(command, "--max-statement", options.max_statement_mib, kMostMib,
           "Leave out statements of more than N MiB (default: 64)");
  command
      .add_option("FILE", options.files,
                  "Files of statements, which gzip, bzip2, xz, zstd or lz4 may have compressed; "
                  "\"-\" or no file means standard input")
      ->check(RefuseEmpty())
      ->type_name("");
}

void AddNormalize(CommandLine& line) {
  auto [command, options] =
      line.Add("normalize", "Print the canonical texts of statements", Normalize);
  AddInput(command, options.input, ReadableFormats());
  AddFlag(command, "--pairs", options.pairs, "Print each statement before its canonical text");
  AddPlugin(command, options.plugin);
  command.footer(
      "The texts are separated as the statements of the input are. With --input=nul every byte is\n"
      "kept. A statement that fails is reported with its number, the others are printed, and the\n"
      "exit code is 1.\n\n"
      "Examples:\n"
      "  tarn_host normalize statements.sql\n"
      "  tarn_host normalize --pairs statements.sql\n"
      "  echo 'select 0x1F from tab t3' | tarn_host normalize --input=lines");
}

void AddTrace(CommandLine& line) {
  auto [command, options] = line.Add("trace", "Print a statement after each rewrite step", Trace);
  command.add_option("STATEMENT", options.statement, "The statement (default: standard input)")
      ->type_name("");
  AddName(command, "--plugin", options.plugin, "PATH",
          "Compare the result with the canonical text of this library");
  command.footer(
      "Prints the text after each of the 23 steps that changed it, with the step's number and\n"
      "name. Control characters are shown as \\n, \\t and so on. The tool takes the steps itself.\n"
      "With --plugin the exit code is 1 if the library's text differs from their result.\n\n"
      "Examples:\n"
      "  tarn_host trace \"select t3.a, 1.50 from tab t3 where (t3.id = 0x1F)\"\n"
      "  tarn_host trace < statement.sql");
}

void AddMap(CommandLine& line) {
  auto [command, options] =
      line.Add("map", "Print the product's error code for a native status", Map);
  command
      .add_option("STATUS", options.status, "Signed 32-bit number, decimal or 0x and hexadecimal")
      ->required()
      ->type_name("");
  AddPlugin(command, options.plugin);
  command.footer(
      "Prints the code in decimal and in hexadecimal.\n\n"
      "Examples:\n"
      "  tarn_host map 0\n"
      "  tarn_host map -1\n"
      "  tarn_host map 0x7fffffff");
}

void AddShapes(CommandLine& line) {
  auto [command, options] =
      line.Add("shapes", "Count statements by shape, and sum up their times", Shapes);
  constexpr unsigned kMostThreads = 256;
  options.threads = std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
  // More shapes do not fit into memory.
  constexpr std::uint64_t kMostShapes = std::numeric_limits<std::uint32_t>::max();
  auto formats = ReadableFormats();
  formats.emplace(kReportFormat.name, &kReportFormat);
  AddInput(command, options.input, formats);
  AddFlag(command, "--exact", options.rule.exact,
          "Count by the canonical text, which keeps values and lists");
  AddFlag(command, "--fold-digits", options.rule.fold_digits,
          "Count names that differ only in digits as one, such as orders_2024 and orders_2025");
  AddFlag(command, "--keys", options.rule.keys,
          "Count the canonical texts of each shape, which are the keys in a host's tables");
  AddChoice(command, "--sort", options.table.rank.order,
            std::map<std::string, ShapeOrder>{{"count", ShapeOrder::kCount},
                                              {"time", ShapeOrder::kTime},
                                              {"max", ShapeOrder::kMax},
                                              {"rows", ShapeOrder::kRows}},
            "ORDER",
            "Print first the shapes with the most statements (count), the most time (time, "
            "the default if times are known), the slowest statement (max) or the most rows "
            "examined (rows)");
  AddCount(command, "--top", options.table.rank.top, kMostShapes,
           "Print the first N shapes and sum up the others");
  AddCount(command, "--min-count", options.table.rank.min_count, kMostShapes,
           "Sum up the shapes of fewer than N statements");
  AddFlag(command, "--examples", options.table.examples,
          "Print below each shape its slowest statement and when it ran");
  AddName(command, "--since", options.since, "TIME",
          "Leave out statements before a time, such as 2026-11-24 09:05, or before the last "
          "90s, 30m, 2h or 7d of the log");
  AddName(command, "--until", options.until, "TIME", "Leave out statements of this time or later");
  std::map<std::string, Detail> details;
  for (std::size_t i = 0; i < kDetails; ++i) {
    const std::string name = NameOf(static_cast<Detail>(i));
    AddName(command, "--" + name, options.details.at(i), "NAME",
            "Leave out statements of every other " + (name == "db" ? "database" : name));
    details.emplace(name, static_cast<Detail>(i));
  }
  AddChoice(command, "--group-by", options.rule.group_by, details, "DETAIL",
            "Count the shapes of each user, database (db) or host separately");
  AddName(command, "--compare", options.compare, "FILE",
          "Print the changes since the report or log FILE");
  AddFlag(command, "--json", options.json,
          "Print JSON, with examples; reports can be read again and add up");
  AddCount(command, "--threads", options.threads, kMostThreads,
           "Count on N threads (default: one per processor)");
  AddPlugin(command, options.plugin);
  command.footer(
      "Statements have one shape if they differ only in values, in the length of lists of values,\n"
      "in the number of VALUES rows, or in comments, case and spacing. If the input is a log with\n"
      "times, the times are summed up. Statements that fail are reported. Ctrl-C ends the input\n"
      "and prints the counts so far.\n\n"
      "Examples:\n"
      "  tarn_host shapes statements.sql\n"
      "  tarn_host shapes --input=slowlog --top 10 mysql-slow.log.1.gz\n"
      "  tarn_host shapes --input=csvlog --sort=max --examples postgresql.csv\n"
      "  tarn_host shapes --input=slowlog --since 2h --user shop mysql-slow.log\n"
      "  tarn_host shapes --json statements.sql\n"
      "  tarn_host shapes a.json b.json c.json");
}

void AddCheck(CommandLine& line) {
  auto [command, options] =
      line.Add("check", "Check whether a host can load and use a library", Check);
  constexpr std::uint64_t kMaxSeconds = 86'400;
  AddName(command, "LIBRARY", options.library, "",
          "The library's file; by default the one beside the tool");
  AddCount(command, "--timeout", options.seconds, kMaxSeconds,
           "End the check after N seconds (default: 10)");
  command.footer(
      "Prints one line for each fact, \"pass\" or \"FAIL\". The exit code is 1 if any fact fails.\n"
      "The facts in the file come first. For the others a child process loads the library and\n"
      "calls it. Its code can forge them, so don't check a library that you don't trust.\n\n"
      "Examples:\n"
      "  tarn_host check\n"
      "  tarn_host check --timeout=60 ./libtarn_interface_for_vesta.so");
}

void AddConfig(CommandLine& line) {
  auto [command, options] =
      line.Add("config", "Print the plug-in's answers for a database", Config);
  AddName(command, "DBNAME", options.database, "", "Name of the database in the configuration")
      ->required();
  AddFlag(command, "--show-password", options.show_password,
          "Print the deciphered password instead of a mask");
  AddFlag(command, "--json", options.json, "Print a JSON object instead of a table");
  AddPlugin(command, options.plugin);
  command.footer(
      "Prints the engine type, the login account, the address and the connection properties, or\n"
      "the first reason for which one is missing. Without --show-password the password is\n"
      "********, and in JSON null with \"password_masked\": true.\n\n"
      "The stand-in platform reads:\n"
      "  TARN_SYS_CONF     JSON file of the databases\n"
      "  TARN_KEY_FILE     key file of the stored passwords\n"
      "  TARN_PROC_ID, TARN_PROC_HANDLE\n"
      "                    identity and handle of the process\n"
      "  TARN_LOG_LEVEL    off (here the default), error, warn or debug\n"
      "The plug-in itself reads:\n"
      "  APP_CONF_FILE     application configuration, for the SSL mode\n\n"
      "Examples:\n"
      "  tarn_host config orders\n"
      "  tarn_host config orders --json --show-password");
}

void AddEncrypt(CommandLine& line) {
  auto [command, options] =
      line.Add("encrypt", "Encipher a password for the stand-in's configuration", Encrypt);
  const std::map<std::string, unsigned int> algorithms{{"19", standin::kAes256Gcm},
                                                       {"aes-256-gcm", standin::kAes256Gcm},
                                                       {"18", standin::kAes128Ecb},
                                                       {"aes-128-ecb", standin::kAes128Ecb}};
  AddChoice(command, "--algorithm", options.algorithm, algorithms, "NAME",
            "aes-256-gcm (19, the default) or aes-128-ecb (18)");
  AddName(command, "--key", options.key_file, "FILE",
          "Key file (default: the one that TARN_KEY_FILE names)");
  command.footer(
      "Reads the password from the first line of standard input. A terminal asks for it twice,\n"
      "without echo. Prints the text to store in the configuration.\n\n"
      "Examples:\n"
      "  tarn_host encrypt --key orders.key\n"
      "  tarn_host encrypt --algorithm aes-128-ecb < password.txt");
}

void AddKeygen(CommandLine& line) {
  auto [command, file] = line.Add<std::string>(
      "keygen", "Make a key file for the stand-in's stored passwords", [](const std::string& path) {
        standin::CipherKey::CreateFile(path);
        return kExitSuccess;
      });
  AddName(command, "FILE", file, "", "The file to make; an existing file is not overwritten")
      ->required();
  command.footer(
      "The file is readable and writable by its owner alone, as the stand-in requires. If the\n"
      "key is lost, so are the passwords that were enciphered with it.\n\n"
      "Example:\n"
      "  tarn_host keygen orders.key");
}

// The reason for refusing the command line, and the help to read: "a command is required (see
// tarn_host --help)".
std::string UsageReason(const CLI::App& app, const CLI::ParseError& error) {
  const auto chosen = app.get_subcommands();
  if (chosen.empty()) {
    const auto unknown = app.remaining();
    const std::string reason =
        unknown.empty() ? "a command is required" : "no such command or option: " + unknown[0];
    return reason + " (see tarn_host --help)";
  }
  const std::string command = chosen.front()->get_name();
  std::string reason = error.what();
  if (error.get_name() == "ArgumentMismatch") {
    // "--top: 1 required N missing" or "json was given a disallowed flag override".
    const std::size_t name_end = reason.find_first_of(": ");
    reason = reason[name_end] == ':' ? reason.substr(0, name_end) + ": a value is missing"
                                     : "--" + reason.substr(0, name_end) + ": takes no value";
  } else if (const auto extra = chosen.front()->remaining(); !extra.empty()) {
    reason = "unexpected argument: " + extra[0];
  }
  return fmt::format("{}: {} (see tarn_host {} --help)", command, reason, command);
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
  CommandLine line;
  line.app.set_version_flag("--version", "tarn_host " TARN_VERSION);
  line.app.require_subcommand(1);
  line.app.get_formatter()->label("SUBCOMMAND", "COMMAND");
  line.app.footer(
      "\"tarn_host COMMAND --help\" describes one command.\n\n"
      "Exit codes: 0 success; 1 a statement failed, a checked fact does not hold, or a\n"
      "part of the input could not be used;\n"
      "2 bad usage, or a file or library that can't be used; 130 ended by Ctrl-C;\n"
      "141 the reader of the output has closed it.");
  AddNormalize(line);
  AddTrace(line);
  AddMap(line);
  AddShapes(line);
  AddCheck(line);
  AddConfig(line);
  AddEncrypt(line);
  AddKeygen(line);
  // The library would take the next word for the value: --prefix= a.log
  for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
    const std::string_view word = argv[i];
    if (word.starts_with("--") && word.find('=') == word.size() - 1) {
      throw ToolError(fmt::format("{}: the value is empty", word.substr(0, word.size() - 1)));
    }
  }
  try {
    line.app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0) throw ToolError(UsageReason(line.app, error));
    // Not an error, but the wish for help or the version.
    std::ostringstream text;
    line.app.exit(error, text);
    Output output;
    output.Write(text.str());
    output.Flush();
  }
  return line.exit_code;
}

}  // namespace tarn::host

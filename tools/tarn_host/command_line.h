// The command line: commands with their options. Only command_line.cpp includes CLI11, which takes
// the compiler several seconds in each file.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

namespace tarn::host {

// Whether an argument may be absent.
enum class Presence { kOptional, kRequired };

// A command whose options are being declared. Each function adds one option. Parsing writes it to
// `value`, which must outlive the parsing, or leaves it unchanged if the option is not given. A
// `name` begins with "--"; the name of an argument is in capitals, as FILE. Help shows `kind` for
// the value, as in "--key FILE".
class Command {
 public:
  // `app` must outlive this object.
  explicit Command(CLI::App& app) noexcept : app_(&app) {}

  void Flag(const std::string& name, bool& value, const std::string& help);

  // Any text, also an empty one.
  void Text(const std::string& name, std::optional<std::string>& value, const std::string& help,
            Presence presence = Presence::kOptional);
  void Texts(const std::string& name, std::vector<std::string>& values, const std::string& help);

  // The name of a file, a library or a database. Parsing refuses an empty name: `--key "$UNSET"` in
  // a script must not mean the default.
  void Name(const std::string& name, std::string& value, const std::string& kind,
            const std::string& help, Presence presence = Presence::kOptional);

  // A whole number from 1 to `most`.
  void Count(const std::string& name, std::uint64_t& value, std::uint64_t most,
             const std::string& help);

  // One of the names in `values`. Parsing writes the value of that name.
  template <typename Chosen, typename Value>
  void Choice(const std::string& name, Chosen& value, const std::map<std::string, Value>& values,
              const std::string& kind, const std::string& help) {
    std::vector<std::string> names;
    for (const auto& named : values) names.push_back(named.first);
    AddChoice(
        name, [&value, values](const std::string& chosen) { value = values.at(chosen); }, names,
        kind, help);
  }

  // The text that help prints after the options.
  void Footer(const std::string& text);

 private:
  void AddChoice(const std::string& name, const std::function<void(const std::string&)>& choose,
                 const std::vector<std::string>& names, const std::string& kind,
                 const std::string& help);

  CLI::App* app_;
};

// The tool's command line. Not synchronised.
class CommandLine {
 public:
  CommandLine(const std::string& description, const std::string& version,
              const std::string& footer);
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;
  ~CommandLine();

  // Adds a command, and returns it with the options that its declarations write to. If the command
  // is chosen, `run` gets the options and returns the exit code; it may throw.
  template <typename Options>
  std::pair<Command, Options&> Add(const std::string& name, const std::string& help,
                                   int (*run)(const Options&)) {
    const auto options = std::make_shared<Options>();
    return {AddCommand(name, help, [options, run] { return run(*options); }), *options};
  }

  // Runs the command that `argv` names, or prints help or the version, and returns the exit code.
  // Throws ToolError for bad usage, and lets the command's exceptions through. Requires: this is
  // the only call.
  int Run(int argc, char** argv);

 private:
  Command AddCommand(const std::string& name, const std::string& help, std::function<int()> run);

  std::unique_ptr<CLI::App> app_;
  int exit_code_ = 0;
};

}  // namespace tarn::host

// The tool's commands and their options as a person types them. CLI11 lies behind this and in
// command_line.cpp alone, since it takes the compiler several seconds wherever it is included.
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

// Whether a command can do without an argument.
enum class Presence { kOptional, kRequired };

// A command while its options are declared. Each function adds one that parsing writes to
// `value`, which is left alone when the option is not given and must outlive the parsing. A `name`
// begins with "--", or is that of an argument in capitals; `kind` is what help shows for the value.
class Command {
 public:
  // Borrows `app`.
  explicit Command(CLI::App& app) noexcept : app_(&app) {}

  void Flag(const std::string& name, bool& value, const std::string& help);

  // Any text, an empty one included.
  void Text(const std::string& name, std::optional<std::string>& value, const std::string& help,
            Presence presence = Presence::kOptional);
  void Texts(const std::string& name, std::vector<std::string>& values, const std::string& help);

  // The name of a file, a library or a database. An empty one is refused: a script's unset variable
  // must not mean the default.
  void Name(const std::string& name, std::string& value, const std::string& kind,
            const std::string& help, Presence presence = Presence::kOptional);

  // A whole number from 1 to `most`.
  void Count(const std::string& name, std::uint64_t& value, std::uint64_t most,
             const std::string& help);

  // One of the names in `values`, which help lists.
  template <typename Chosen, typename Value>
  void Choice(const std::string& name, Chosen& value, const std::map<std::string, Value>& values,
              const std::string& kind, const std::string& help) {
    std::vector<std::string> names;
    names.reserve(values.size());
    for (const auto& named : values) names.push_back(named.first);
    AddChoice(
        name, [&value, values](const std::string& chosen) { value = values.at(chosen); }, names,
        kind, help);
  }

  // What help says behind the options.
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
  // Throws ToolError for bad usage and what the command throws. To be called once.
  int Run(int argc, char** argv);

 private:
  Command AddCommand(const std::string& name, const std::string& help, std::function<int()> run);

  std::unique_ptr<CLI::App> app_;
  int exit_code_ = 0;
};

}  // namespace tarn::host

#include "tarn_host/command_line.h"

#include <CLI/CLI.hpp>
#include <cassert>
#include <sstream>

#include "tarn_host/errors.h"
#include "tarn_host/output.h"

namespace tarn::host {
namespace {

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
  return command + ": " + error.what() + " (see tarn_host " + command + " --help)";
}

}  // namespace

void Command::Flag(const std::string& name, bool& value, const std::string& help) {
  app_->add_flag(name, value, help);
}

void Command::Text(const std::string& name, std::optional<std::string>& value,
                   const std::string& help, Presence presence) {
  app_->add_option(name, value, help)->required(presence == Presence::kRequired)->type_name("");
}

void Command::Texts(const std::string& name, std::vector<std::string>& values,
                    const std::string& help) {
  app_->add_option(name, values, help)->type_name("");
}

void Command::Name(const std::string& name, std::string& value, const std::string& kind,
                   const std::string& help, Presence presence) {
  const auto refuse_empty = [](const std::string& text) {
    return text.empty() ? std::string("the name is empty") : std::string();
  };
  app_->add_option(name, value, help)
      ->required(presence == Presence::kRequired)
      ->check(CLI::Validator(refuse_empty, ""))
      ->type_name(kind);
}

void Command::Count(const std::string& name, std::uint64_t& value, std::uint64_t most,
                    const std::string& help) {
  app_->add_option(name, value, help)->check(CLI::Range(std::uint64_t{1}, most))->type_name("N");
}

void Command::AddChoice(const std::string& name,
                        const std::function<void(const std::string&)>& choose,
                        const std::vector<std::string>& names, const std::string& kind,
                        const std::string& help) {
  app_->add_option_function<std::string>(name, choose, help)
      ->check(CLI::IsMember(names))
      ->type_name(kind);
}

void Command::Footer(const std::string& text) { app_->footer(text); }

CommandLine::CommandLine(const std::string& description, const std::string& version,
                         const std::string& footer)
    : app_(std::make_unique<CLI::App>(description, "tarn_host")) {
  app_->set_version_flag("--version", "tarn_host " + version);
  app_->require_subcommand(1);
  app_->footer(footer);
}

CommandLine::~CommandLine() = default;

Command CommandLine::AddCommand(const std::string& name, const std::string& help,
                                std::function<int()> run) {
  CLI::App* const command = app_->add_subcommand(name, help);
  command->callback([this, run = std::move(run)] { exit_code_ = run(); });
  return Command(*command);
}

int CommandLine::Run(int argc, char** argv) {
  assert(!app_->parsed());
  try {
    app_->parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0) throw ToolError(UsageReason(*app_, error));
    // Not an error, but the wish for help or the version.
    std::ostringstream text;
    app_->exit(error, text);
    Output output;
    output.Write(text.str());
    output.Flush();
  }
  return exit_code_;
}

}  // namespace tarn::host

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <string>

#include "tarn_host/commands.h"
#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/output.h"

namespace {

using namespace tarn::host;

// What was wrong with the command line, and where to read on.
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

// Runs the chosen command and returns its exit code. Throws ToolError, PluginError and
// std::bad_alloc.
int Run(int argc, char** argv) {
  CLI::App app("Does what a host does with the product plug-in, from the command line.",
               "tarn_host");
  app.set_version_flag("--version", "tarn_host " TARN_VERSION);
  app.require_subcommand(1);
  app.footer(
      "\"tarn_host COMMAND --help\" tells of one command.\n\n"
      "Exit codes: 0 success; 1 something the command was given failed, such as a statement;\n"
      "2 bad usage, or a file or library that can't be used; 130 ended by Ctrl-C;\n"
      "141 nobody read the output any more.");

  int exit_code = kExitSuccess;
  AddNormalizeCommand(app, exit_code);
  AddTraceCommand(app, exit_code);
  AddMapCommand(app, exit_code);
  AddShapesCommand(app, exit_code);
  AddCheckCommand(app, exit_code);
  AddConfigCommand(app, exit_code);
  AddEncryptCommand(app, exit_code);
  AddKeygenCommand(app, exit_code);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForVersion& version) {
    Output output;
    output.Write(std::string(version.what()) + '\n');
    output.Flush();
  } catch (const CLI::CallForHelp&) {
    Output output;
    output.Write(app.help());
    output.Flush();
  } catch (const CLI::ParseError& error) {
    throw ToolError(UsageReason(app, error));
  }
  return exit_code;
}

// Gives the standard streams that the caller has closed a descriptor, lest a file or a signal's
// descriptor take their number. It points the wrong way, so that using one is reported.
void OpenStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free number is taken.
    const int mode = stream == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    if (fcntl(stream, F_GETFD) < 0) static_cast<void>(open("/dev/null", mode));
  }
}

}  // namespace

int main(int argc, char** argv) {
  OpenStandardStreams();
  // A reader that goes away shows as a failed write.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return Run(argc, argv);
  } catch (const ReaderGone&) {
    // Ends in silence and with the status that shells expect: that of a process which the signal
    // ended.
    std::signal(SIGPIPE, SIG_DFL);
    return std::raise(SIGPIPE);
  } catch (const std::exception& error) {
    ReportError(error.what());
    return kExitTrouble;
  }
}

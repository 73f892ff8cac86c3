#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <exception>

#include "tarn_host/commands.h"
#include "tarn_host/errors.h"
#include "tarn_host/interrupt.h"

namespace {

using namespace tarn::host;

// Runs the chosen command and returns its exit code. Throws ToolError, PluginError and
// std::bad_alloc.
int Run(int argc, char** argv) {
  CommandLine line("Uses the product plug-in as a host does, from the command line.", TARN_VERSION,
                   "\"tarn_host COMMAND --help\" describes one command.\n\n"
                   "Exit codes: 0 success; 1 a statement failed, or a checked fact does not hold;\n"
                   "2 bad usage, or a file or library that can't be used; 130 ended by Ctrl-C;\n"
                   "141 the reader of the output has closed it.");
  AddNormalizeCommand(line);
  AddTraceCommand(line);
  AddMapCommand(line);
  AddShapesCommand(line);
  AddCheckCommand(line);
  AddConfigCommand(line);
  AddEncryptCommand(line);
  AddKeygenCommand(line);
  return line.Run(argc, argv);
}

// Opens each standard stream that the caller has closed, so that no other file gets its number. It
// is opened for the wrong direction, so that an attempt to use it is reported.
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
  ExitOnInterrupt();
  // Without the signal, a write to a closed pipe fails with EPIPE.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return Run(argc, argv);
  } catch (const ReaderGone&) {
    // Ends without a message, and by the signal, as shells expect.
    std::signal(SIGPIPE, SIG_DFL);
    return std::raise(SIGPIPE);
  } catch (const std::exception& error) {
    ReportError(error.what());
    return kExitTrouble;
  }
}

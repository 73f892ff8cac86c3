#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <filesystem>
#include <system_error>

#include "plugin/plugin.h"
#include "tarn_host/commands.h"
#include "tarn_host/errors.h"
#include "tarn_host/interrupt.h"

namespace tarn::host {
namespace {

bool Exists(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

}  // namespace

std::string ChosenPlugin(const std::string& path) {
  if (path.empty()) return FileOfTheTool(kPluginFile);
  return path.find('/') == std::string::npos && Exists(path) ? "./" + path : path;
}

std::string FileOfTheTool(const std::string& file) {
  std::error_code error;
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return file;
  // The first two are the layout of a build folder, the last that of an installed tree, which may
  // have been moved.
  for (const char* const folder : {".", "../lib", TARN_LIBRARY_FOLDER}) {
    const auto candidate = (executable.parent_path() / folder / file).lexically_normal();
    if (Exists(candidate)) return candidate.string();
  }
  return file;
}

}  // namespace tarn::host

namespace {

using namespace tarn::host;

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
    return RunCommandLine(argc, argv);
  } catch (const ReaderGone&) {
    // Ends without a message, and by the signal, as shells expect.
    std::signal(SIGPIPE, SIG_DFL);
    return std::raise(SIGPIPE);
  } catch (const std::exception& error) {
    ReportError(error.what());
    return kExitTrouble;
  }
}

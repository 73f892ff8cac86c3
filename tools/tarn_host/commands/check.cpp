#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>

#include "plugin/elf_library.h"
#include "plugin/plugin_check.h"
#include "tarn_host/commands.h"
#include "tarn_host/errors.h"
#include "tarn_host/output.h"

namespace tarn::host {
namespace {

using Tell = std::function<void(const Fact&)>;

// The child process sends a line for each fact, "+soname: NAME" or "-soname: NAME", and this line
// at its end, since its exit code might be the library's.
constexpr const char* kEnd = ".";

// Checks the library in this process, a child of `parent`, and ends it.
[[noreturn]] void CheckAndExit(const std::string& path, const ElfLibrary& library, int to_parent,
                               pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(kExitTrouble);
  // The library and the processes that it starts get neither the tool's terminal nor its streams,
  // which a caller may read to their end.
  setsid();
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(nothing, stream);
  for (const int signal : {SIGINT, SIGALRM}) std::signal(signal, SIG_DFL);
  const auto send = [to_parent](const std::string& text) {
    const std::string line = OneLine(text) + '\n';
    if (write(to_parent, line.data(), line.size()) != std::ssize(line)) _exit(kExitTrouble);
  };
  try {
    CheckLoaded(path, library,
                [&send](const Fact& fact) { send((fact.holds ? '+' : '-') + fact.text); });
    send(kEnd);
  } catch (const std::exception& error) {
    send(std::string("-examination: ") + error.what());
  }
  _exit(kExitSuccess);
}

// A child process that loads the library and sends the facts. The object's end kills it with all
// processes that it has started in its process group.
class Examiner {
 public:
  // Throws ToolError. All output has to be flushed before, or else the child writes it again.
  Examiner(const std::string& path, const ElfLibrary& library) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw ToolError(SystemReason("check", errno));
    from_child_ = ends[0];
    const pid_t parent = getpid();
    child_ = fork();
    if (child_ == 0) CheckAndExit(path, library, ends[1], parent);
    const int error = errno;
    close(ends[1]);
    if (child_ > 0) ended_fd_ = static_cast<int>(syscall(SYS_pidfd_open, child_, 0));
    if (ended_fd_ >= 0) return;
    const std::string reason = SystemReason("check", child_ > 0 ? errno : error);
    End();
    throw ToolError(reason);
  }
  Examiner(const Examiner&) = delete;
  Examiner& operator=(const Examiner&) = delete;
  ~Examiner() { End(); }

  // Tells the facts that the process sends, for `seconds` at most.
  void TellFacts(std::uint64_t seconds, const Tell& tell) {
    const std::string leaves_running = "leaves its process running: ";
    // All facts take far less.
    constexpr std::size_t kMaxBytes = std::size_t{1} << 20U;
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    std::string line;
    std::size_t total = 0;
    std::array<char, 4096> block{};
    while (Await(end)) {
      const ssize_t got = read(from_child_, block.data(), block.size());
      if (got <= 0) break;
      for (const char c : std::string_view(block.data(), static_cast<std::size_t>(got))) {
        if (c != '\n') {
          line += c;
          continue;
        }
        if (line == kEnd) return;
        tell({line.starts_with('+'), line.substr(line.empty() ? 0 : 1)});
        line.clear();
      }
      total += static_cast<std::size_t>(got);
      if (total > kMaxBytes) return tell({false, leaves_running + "it sends more than 1 MiB"});
    }
    if (Clock::now() >= end) {
      tell({false, fmt::format("ends in time: still running after {} s (see --timeout)", seconds)});
    } else {
      tell({false, leaves_running + HowItEnded(End())});
    }
  }

 private:
  using Clock = std::chrono::steady_clock;

  // Waits for something to read. Returns false at `end`, or if the process has ended and all that
  // it sent was read.
  bool Await(Clock::time_point end) {
    std::array<pollfd, 2> watched{{{from_child_, POLLIN, 0}, {ended_fd_, POLLIN, 0}}};
    for (;;) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
      if (left <= 0) return false;
      const int ready = poll(watched.data(), watched.size(), static_cast<int>(left));
      if (ready < 0 && errno != EINTR) throw ToolError(SystemReason("poll", errno));
      if (ready <= 0) continue;
      if ((watched[0].revents & POLLIN) != 0) return true;
      if (watched[1].revents != 0) return false;
      // The process has closed its end of the pipe and goes on running.
      watched[0].fd = -1;
    }
  }

  static std::string HowItEnded(int status) {
    return WIFEXITED(status) ? fmt::format("it ended with exit code {}", WEXITSTATUS(status))
                             : fmt::format("it died: {}", strsignal(WTERMSIG(status)));
  }

  // Kills the process, closes the descriptors and returns the process's status.
  int End() noexcept {
    if (from_child_ < 0) return 0;
    int status = 0;
    if (child_ > 0) {
      // No other process gets its number before waitpid.
      kill(-child_, SIGKILL);
      kill(child_, SIGKILL);
      while (waitpid(child_, &status, 0) < 0 && errno == EINTR) {
      }
    }
    close(from_child_);
    if (ended_fd_ >= 0) close(ended_fd_);
    from_child_ = -1;
    return status;
  }

  int from_child_ = -1;
  int ended_fd_ = -1;
  pid_t child_ = -1;
};

}  // namespace

int Check(const CheckOptions& options) {
  const std::string path = ChosenPlugin(options.library);
  const ElfLibrary library = ReadElfLibrary(path);
  Output output;
  bool all_hold = true;
  const Tell tell = [&](const Fact& fact) {
    const std::string verdict =
        fact.holds ? output.Coloured("32", "pass") : output.Coloured("1;31", "FAIL");
    output.Write(fmt::format("{}  {}\n", verdict, OneLine(fact.text)));
    output.Flush();
    all_hold = all_hold && fact.holds;
  };
  output.Write("read from the file:\n");
  for (const Fact& fact : CheckFile(library)) tell(fact);
  output.Write("reported by a process that has loaded it:\n");
  output.Flush();
  Examiner(path, library).TellFacts(options.seconds, tell);
  return all_hold ? kExitSuccess : kExitFailed;
}

}  // namespace tarn::host

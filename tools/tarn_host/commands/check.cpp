#include <fcntl.h>
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
#include <string>
#include <string_view>

#include "plugin/elf_library.h"
#include "plugin/plugin_check.h"
#include "tarn_host/commands.h"
#include "tarn_host/errors.h"
#include "tarn_host/output.h"

namespace tarn::host {
namespace {

// Prints one line for each fact.
class FactSheet {
 public:
  explicit FactSheet(Output& output) : output_(output) {}

  void Head(std::string_view text) { output_.Write(std::string(text) + ":\n"); }

  void Add(const Fact& fact) {
    std::string word = fact.holds ? "pass" : "FAIL";
    if (output_.Coloured()) word = (fact.holds ? "\x1B[32m" : "\x1B[1;31m") + word + "\x1B[0m";
    output_.Write(word + "  " + OneLine(fact.text) + '\n');
    output_.Flush();
    all_hold_ = all_hold_ && fact.holds;
  }

  bool AllHold() const noexcept { return all_hold_; }

 private:
  Output& output_;
  bool all_hold_ = true;
};

// The child process sends a line for each fact, "+soname: NAME" or "-soname: NAME", and this line
// at its end, since its exit code might be the library's.
constexpr std::string_view kEnd = ".";

void Send(int to_parent, const std::string& line) {
  const std::string bytes = line + '\n';
  if (write(to_parent, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    _exit(kExitTrouble);
  }
}

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
  try {
    CheckLoaded(path, library, [to_parent](const Fact& fact) {
      Send(to_parent, (fact.holds ? '+' : '-') + OneLine(fact.text));
    });
    Send(to_parent, std::string(kEnd));
  } catch (const std::exception& error) {
    Send(to_parent, "-examination: " + OneLine(error.what()));
  }
  _exit(kExitSuccess);
}

// A child process that loads the library and sends the facts. The object's end kills it with all
// processes that it has started in its process group.
class Examiner {
 public:
  // Throws ToolError. Requires: no output is buffered, since the child would write it again.
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

  // Adds the facts that the process sends, for `seconds` at most.
  void AddFacts(std::uint64_t seconds, FactSheet& facts) {
    const std::string leaves_running = "leaves its process running: ";
    // All facts take far less.
    constexpr std::size_t kMaxBytes = std::size_t{1} << 20U;
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    std::string heard;
    std::size_t total = 0;
    while (Await(end)) {
      std::array<char, 4096> block{};
      const ssize_t got = read(from_child_, block.data(), block.size());
      if (got <= 0) break;
      total += static_cast<std::size_t>(got);
      heard.append(block.data(), static_cast<std::size_t>(got));
      for (std::size_t end_of_line = 0; (end_of_line = heard.find('\n')) != std::string::npos;) {
        const std::string line = heard.substr(0, end_of_line);
        heard.erase(0, end_of_line + 1);
        if (line == kEnd) return;
        facts.Add({line.starts_with('+'), line.empty() ? line : line.substr(1)});
      }
      if (total > kMaxBytes) {
        facts.Add({false, leaves_running + "it sends more than 1 MiB"});
        return;
      }
    }
    if (Clock::now() >= end) {
      facts.Add({false, "ends in time: still running after " + std::to_string(seconds) +
                            " s (see --timeout)"});
    } else {
      facts.Add({false, leaves_running + HowItEnded(End())});
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
    if (WIFEXITED(status)) {
      return "it ended with exit code " + std::to_string(WEXITSTATUS(status));
    }
    return std::string("it died: ") + strsignal(WTERMSIG(status));
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
  FactSheet facts(output);
  facts.Head("read from the file");
  for (const Fact& fact : CheckFile(library)) facts.Add(fact);
  facts.Head("reported by a process that has loaded it");
  output.Flush();
  Examiner(path, library).AddFacts(options.seconds, facts);
  return facts.AllHold() ? kExitSuccess : kExitFailed;
}

}  // namespace tarn::host

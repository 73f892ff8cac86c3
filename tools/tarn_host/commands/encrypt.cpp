#include "tarn_host/commands.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <map>
#include <string>

#include "standin/password_cipher.h"
#include "tarn_host/errors.h"
#include "tarn_host/output.h"

namespace tarn::host {
namespace {

using standin::CipherKey;
using standin::SecretBytes;

// Reads the first line from `fd`, without the newline and a carriage return before it. Throws
// ToolError.
SecretBytes ReadLine(int fd) {
  // The longest password, a carriage return, and a byte too many, so that a longer password is
  // refused and not cut.
  SecretBytes line(standin::kMaxPasswordBytes + 2);
  auto filled = line.begin();
  auto end = filled;
  while (filled != line.end() && end == filled) {
    const ssize_t got =
        TEMP_FAILURE_RETRY(read(fd, &*filled, static_cast<std::size_t>(line.end() - filled)));
    if (got < 0) throw ToolError(SystemReason("standard input", errno));
    if (got == 0) break;
    filled += got;
    end = std::find(line.begin(), filled, '\n');
  }
  if (end != filled && end != line.begin() && end[-1] == '\r') --end;
  line.erase(end, line.end());
  return line;
}

// The user's terminal, without echo during the object's life. Before a signal ends or suspends the
// process, the echo is turned on; if the process goes on, it is turned off again. The process must
// have no other such object and no other thread.
class HiddenInput {
 public:
  // Takes the process's terminal or, without one, standard input. Throws ToolError.
  HiddenInput() : terminal_(open("/dev/tty", O_RDWR | O_CLOEXEC)) {
    if (terminal_ < 0) terminal_ = STDIN_FILENO;
    sigfillset(&caught_);
    // Not caught are signals without an effect, and SIGTTIN and SIGTTOU, which come only in the
    // background, where the process may not change the terminal. A fault of the process itself ends
    // it even if its signal is blocked.
    for (const int signal : {SIGTTIN, SIGTTOU, SIGCHLD, SIGURG, SIGWINCH}) {
      sigdelset(&caught_, signal);
    }
    signal_fd_ = signalfd(-1, &caught_, SFD_CLOEXEC);
    if (signal_fd_ < 0 || tcgetattr(terminal_, &shown_) != 0) {
      const int error = errno;
      close(signal_fd_);
      if (terminal_ != STDIN_FILENO) close(terminal_);
      throw ToolError(SystemReason("terminal", error));
    }
    pthread_sigmask(SIG_BLOCK, &caught_, &old_mask_);
    SetEcho(false);
  }
  HiddenInput(const HiddenInput&) = delete;
  HiddenInput& operator=(const HiddenInput&) = delete;
  ~HiddenInput() {
    SetEcho(true);
    // The shell must not read the rest of the password as a command.
    tcflush(terminal_, TCIFLUSH);
    pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
    close(signal_fd_);
    if (terminal_ != STDIN_FILENO) close(terminal_);
  }

  // Prints `question`, again each time the process was suspended, and waits until a line can be
  // read from Fd. Throws ToolError.
  void Ask(const std::string& question) {
    Output screen(terminal_ == STDIN_FILENO ? STDERR_FILENO : terminal_, "terminal");
    std::array<pollfd, 2> watched{{{signal_fd_, POLLIN, 0}, {terminal_, POLLIN, 0}}};
    for (;;) {
      screen.Write(question);
      screen.Flush();
      if (TEMP_FAILURE_RETRY(poll(watched.data(), watched.size(), -1)) < 0) {
        throw ToolError(SystemReason("poll", errno));
      }
      if (watched[0].revents == 0) return;
      signalfd_siginfo signal;
      if (TEMP_FAILURE_RETRY(read(signal_fd_, &signal, sizeof signal)) < 0) {
        throw ToolError(SystemReason("signalfd", errno));
      }
      SetEcho(true);
      pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
      // Ends or suspends the process, or does nothing.
      std::raise(static_cast<int>(signal.ssi_signo));
      pthread_sigmask(SIG_BLOCK, &caught_, nullptr);
      SetEcho(false);
    }
  }

  int Fd() const noexcept { return terminal_; }

 private:
  void SetEcho(bool on) noexcept {
    termios settings = shown_;
    if (!on) {
      settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
      // The newline at the end is shown nevertheless.
      settings.c_lflag |= ECHONL;
    }
    TEMP_FAILURE_RETRY(tcsetattr(terminal_, TCSANOW, &settings));
  }

  int terminal_;
  termios shown_{};
  sigset_t caught_{};
  sigset_t old_mask_{};
  int signal_fd_ = -1;
};

// Asks twice on the terminal, without echo. Throws ToolError.
SecretBytes AskTerminal() {
  HiddenInput input;
  input.Ask("Password: ");
  SecretBytes password = ReadLine(input.Fd());
  if (password.empty()) return password;
  input.Ask("The same again: ");
  if (ReadLine(input.Fd()) != password) throw ToolError("encrypt: the two passwords differ");
  return password;
}

}  // namespace

int Encrypt(const EncryptOptions& options) {
  // Reading the key comes first, so that nobody types a password in vain.
  const CipherKey key = options.key_file.empty() ? CipherKey::FromEnvironment()
                                                 : CipherKey::FromFile(options.key_file);
  const SecretBytes password = isatty(STDIN_FILENO) == 1 ? AskTerminal() : ReadLine(STDIN_FILENO);
  if (password.empty()) throw ToolError("encrypt: standard input holds no password");
  Output output;
  output.Write(standin::EncryptPassword(password, options.algorithm, key) + '\n');
  output.Flush();
  return kExitSuccess;
}

}  // namespace tarn::host

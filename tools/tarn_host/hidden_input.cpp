#include "tarn_host/hidden_input.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "tarn_host/errors.h"
#include "tarn_host/output.h"

namespace tarn::host {

HiddenInput::HiddenInput() : terminal_(open("/dev/tty", O_RDWR | O_CLOEXEC)) {
  if (terminal_ < 0) terminal_ = STDIN_FILENO;
  sigfillset(&caught_);
  // Faults of the process are not to wait, and these stop it only once it is in the background,
  // where it may not touch the terminal, or do nothing.
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS, SIGTTIN,
                           SIGTTOU, SIGCHLD, SIGURG, SIGWINCH}) {
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

HiddenInput::~HiddenInput() {
  SetEcho(true);
  // What was typed too much is not for the shell.
  tcflush(terminal_, TCIFLUSH);
  pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
  close(signal_fd_);
  if (terminal_ != STDIN_FILENO) close(terminal_);
}

void HiddenInput::Ask(const std::string& question) {
  Output screen(terminal_ == STDIN_FILENO ? STDERR_FILENO : terminal_, "terminal");
  screen.Write(question);
  screen.Flush();
  std::array<pollfd, 2> watched{{{signal_fd_, POLLIN, 0}, {terminal_, POLLIN, 0}}};
  for (;;) {
    if (poll(watched.data(), watched.size(), -1) < 0) {
      if (errno == EINTR) continue;
      throw ToolError(SystemReason("poll", errno));
    }
    signalfd_siginfo signal;
    if (watched[0].revents == 0) return;
    if (read(signal_fd_, &signal, sizeof signal) != sizeof signal) continue;
    SetEcho(true);
    pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
    // Ends or suspends the process, or does nothing.
    std::raise(static_cast<int>(signal.ssi_signo));
    pthread_sigmask(SIG_BLOCK, &caught_, nullptr);
    SetEcho(false);
    screen.Write(question);
    screen.Flush();
  }
}

void HiddenInput::SetEcho(bool on) noexcept {
  termios settings = shown_;
  if (!on) {
    settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    // The end of a line shows all the same.
    settings.c_lflag |= ECHONL;
  }
  TEMP_FAILURE_RETRY(tcsetattr(terminal_, TCSANOW, &settings));
}

}  // namespace tarn::host

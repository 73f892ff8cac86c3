#include "tarn_host/interrupt.h"

#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "tarn_host/errors.h"

namespace tarn::host {

InterruptWatch::InterruptWatch() {
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  signal_fd_ = signalfd(-1, &interrupt, SFD_CLOEXEC);
  if (signal_fd_ < 0) throw ToolError(SystemReason("signalfd", errno));
  pthread_sigmask(SIG_BLOCK, &interrupt, &old_mask_);
}

InterruptWatch::~InterruptWatch() {
  pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
  close(signal_fd_);
}

bool InterruptWatch::Wait(int fd) {
  std::array<pollfd, 2> watched{{{signal_fd_, POLLIN, 0}, {fd, POLLIN, 0}}};
  while (!interrupted_ && watched[1].revents == 0) {
    if (poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) {
      throw ToolError(SystemReason("poll", errno));
    }
    if (watched[0].revents != 0) {
      // Taken off the queue, it does not end the process later.
      signalfd_siginfo signal;
      interrupted_ = read(signal_fd_, &signal, sizeof signal) == sizeof signal;
    }
  }
  return !interrupted_;
}

}  // namespace tarn::host

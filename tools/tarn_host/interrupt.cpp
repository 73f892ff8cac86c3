#include "tarn_host/interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <csignal>

#include "tarn_host/errors.h"

namespace tarn::host {
namespace {

// The descriptor to which the next Ctrl-C is reported: the watch's, or kNowhere, which ends the
// process. A signal handler can only use global state.
constexpr int kNowhere = -1;
std::atomic<int> watching_fd{kNowhere};
static_assert(std::atomic<int>::is_always_lock_free);

void OnSignal(int signal) {
  const int fd = signal == SIGINT ? watching_fd.exchange(kNowhere) : kNowhere;
  if (fd == kNowhere) _exit(kExitInterrupted);
  const int caller_errno = errno;
  eventfd_write(fd, 1);
  alarm(InterruptWatch::kGraceSeconds);
  errno = caller_errno;
}

sighandler_t HandlerOf(int signal) noexcept {
  struct sigaction action {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler;
}

}  // namespace

void ExitOnInterrupt() noexcept {
  assert(HandlerOf(SIGINT) != OnSignal);
  if (HandlerOf(SIGINT) == SIG_IGN) return;
  struct sigaction action {};
  action.sa_handler = OnSignal;
  // Reading and writing go on after the signal; only a wait has to expect EINTR.
  action.sa_flags = SA_RESTART;
  sigaction(SIGINT, &action, nullptr);
}

InterruptWatch::InterruptWatch() : event_fd_(eventfd(0, EFD_CLOEXEC)) {
  if (event_fd_ < 0) throw ToolError(SystemReason("eventfd", errno));
  assert(watching_fd == kNowhere && HandlerOf(SIGINT) != SIG_DFL);
  watching_fd = event_fd_;
  std::signal(SIGALRM, OnSignal);
}

InterruptWatch::~InterruptWatch() {
  Stop();
  close(event_fd_);
}

bool InterruptWatch::Stop() noexcept {
  const bool interrupted = watching_fd.exchange(kNowhere) == kNowhere;
  alarm(0);
  return interrupted;
}

bool InterruptWatch::Wait(int fd) {
  std::array<pollfd, 2> watched{{{event_fd_, POLLIN, 0}, {fd, POLLIN, 0}}};
  while (poll(watched.data(), watched.size(), -1) < 0) {
    if (errno != EINTR) throw ToolError(SystemReason("poll", errno));
  }
  // The event is never read, so that it ends every later wait, too.
  return watched[0].revents == 0;
}

}  // namespace tarn::host

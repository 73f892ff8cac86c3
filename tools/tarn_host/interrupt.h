#pragma once

#include <csignal>

#include "logs/input.h"

namespace tarn::host {

// Turns Ctrl-C into the end of the input, for as long as it lives. Create it before any thread, so
// that all threads leave the signal to it; one at a time in a process.
class InterruptWatch final : public InputWaiter {
 public:
  // Throws ToolError.
  InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;
  ~InterruptWatch();

  // Waits until `fd` can be read; false, now and ever after, once Ctrl-C was pressed.
  bool Wait(int fd) override;

  bool Interrupted() const noexcept { return interrupted_; }

 private:
  sigset_t old_mask_;
  int signal_fd_;
  bool interrupted_ = false;
};

}  // namespace tarn::host

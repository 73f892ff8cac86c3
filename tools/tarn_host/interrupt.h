#pragma once

#include "logs/input.h"

namespace tarn::host {

// From now on Ctrl-C ends the process at once with kExitInterrupted, by exit rather than by the
// signal, so that whoever started it sees that status. Where the process was started with the
// signal ignored, that stays. To be called once, before any thread is started.
void ExitOnInterrupt() noexcept;

// Turns the first Ctrl-C into the end of the input, for as long as it lives; a second one ends the
// process at once, and so does the first after kGraceSeconds, if the watch lives that long.
// Requires: ExitOnInterrupt was called, and no other watch is alive. Any thread may call
// Interrupted.
class InterruptWatch final : public InputWaiter {
 public:
  // How long what is in hand may take after Ctrl-C.
  static constexpr unsigned kGraceSeconds = 2;

  // Throws ToolError.
  InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;
  ~InterruptWatch();

  // Waits until `fd` can be read; false, now and ever after, once Ctrl-C was pressed.
  bool Wait(int fd) override;

  // Whether Ctrl-C was pressed.
  bool Interrupted() const noexcept;

  // Ends the watch before the object's end: from now on Ctrl-C ends the process at once again.
  // Interrupted stays as it is. To be called when there is no more input, before output that may
  // block.
  void Stop() noexcept;

 private:
  int event_fd_;
  bool stopped_ = false;
  bool interrupted_ = false;
};

}  // namespace tarn::host

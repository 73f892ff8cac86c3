#pragma once

#include "logs/input.h"

namespace tarn::host {

// From now on Ctrl-C ends the process at once with the exit code kExitInterrupted, not by the
// signal, so that its parent sees that code. If the process was started with the signal ignored, it
// stays ignored. Requires: this is the only call. Call it before any thread is started.
void ExitOnInterrupt() noexcept;

// As long as a watch exists, the first Ctrl-C ends the input instead of the process. A second one
// ends the process at once. So does the first one after kGraceSeconds if the watch still exists.
// Requires: ExitOnInterrupt was called, and no other watch exists.
class InterruptWatch final : public InputWaiter {
 public:
  // The time after Ctrl-C in which the statements that were read may be counted.
  static constexpr unsigned kGraceSeconds = 2;

  // Throws ToolError.
  InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;
  ~InterruptWatch();

  // Waits until `fd` can be read, and returns true. Returns false if Ctrl-C was pressed, now or
  // before.
  bool Wait(int fd) override;

  // Ends the watch: from now on Ctrl-C ends the process at once again. Returns whether it was
  // pressed before. Call it once, after the last input and before output, which may block.
  bool Stop() noexcept;

 private:
  int event_fd_;
};

}  // namespace tarn::host

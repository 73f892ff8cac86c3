#pragma once

#include <termios.h>

#include <csignal>
#include <string>

namespace tarn::host {

// The terminal that a person types at, without echo for as long as the object lives. Any signal
// that ends or suspends the process finds the echo turned on; after the process goes on, it is off
// again. One at a time in a process, which has no other thread.
class HiddenInput {
 public:
  // Takes the process's terminal or, without one, standard input. Throws ToolError.
  HiddenInput();
  HiddenInput(const HiddenInput&) = delete;
  HiddenInput& operator=(const HiddenInput&) = delete;
  ~HiddenInput();

  // Puts `question` on the screen, and again whenever the process was suspended, and waits for a
  // line to read from Fd. Throws ToolError.
  void Ask(const std::string& question);

  int Fd() const noexcept { return terminal_; }

 private:
  void SetEcho(bool on) noexcept;

  int terminal_;
  termios shown_{};
  sigset_t caught_;
  sigset_t old_mask_;
  int signal_fd_ = -1;
};

}  // namespace tarn::host

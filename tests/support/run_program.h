// Runs a program as a person does, and keeps its output.
#pragma once

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <iostream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace tarn::test {

// A file descriptor that closes itself.
class OwnedFd {
 public:
  explicit OwnedFd(int fd) : fd_(fd) {
    if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "file descriptor");
  }
  OwnedFd(const OwnedFd&) = delete;
  OwnedFd& operator=(const OwnedFd&) = delete;
  ~OwnedFd() { Close(); }

  int Get() const noexcept { return fd_; }
  void Close() noexcept {
    if (fd_ >= 0) close(std::exchange(fd_, -1));
  }

 private:
  int fd_;
};

// A nameless file, which programs do not inherit.
inline OwnedFd ScratchFile() { return OwnedFd(memfd_create("scratch", MFD_CLOEXEC)); }

// The whole content of the file `fd`.
inline std::string Content(int fd) {
  std::string content;
  char block[4096];
  for (ssize_t got; (got = pread(fd, block, sizeof block, std::ssize(content))) > 0;) {
    content.append(block, static_cast<std::size_t>(got));
  }
  return content;
}

struct RunOptions {
  std::string input{};                     // What standard input holds.
  std::vector<std::string> environment{};  // "NAME=value", over the test's own environment.
  std::string folder = ".";                // Where to run.
};

struct RunResult {
  int exit_code;  // -SIGNAL if a signal ended the program.
  std::string output;
  std::string errors;
};

// Prints the last run of a program if a check of its test fails.
class LastRun : public testing::EmptyTestEventListener {
 public:
  static LastRun& Instance() {
    static auto* const kInstance = [] {
      auto* const listener = new LastRun;  // owned by GoogleTest
      testing::UnitTest::GetInstance()->listeners().Append(listener);
      return listener;
    }();
    return *kInstance;
  }

  void Keep(const std::vector<std::string>& command, const RunResult& result) {
    text_ = "the last run was: " + testing::PrintToString(command) + "\nexit code " +
            std::to_string(result.exit_code) + ", standard error:\n" + result.errors;
  }

 private:
  void OnTestStart(const testing::TestInfo&) override { text_.clear(); }
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (result.failed() && !text_.empty()) std::cout << text_ << '\n';
  }

  std::string text_;
};

// Runs `command`, a program (a path, or a name to search for) and its arguments, to its end. The
// program inherits only descriptors that are not close-on-exec. Throws std::system_error.
inline RunResult RunProgram(const std::vector<std::string>& command,
                            const RunOptions& options = {}) {
  const OwnedFd files[] = {ScratchFile(), ScratchFile(), ScratchFile()};
  const ssize_t written = pwrite(files[0].Get(), options.input.data(), options.input.size(), 0);
  if (written != std::ssize(options.input)) throw std::system_error(errno, std::generic_category());
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    posix_spawn_file_actions_adddup2(&actions, files[stream].Get(), stream);
  }
  // A test that a shell runs in the background has inherited SIGINT as ignored.
  std::vector<std::string> words{"/usr/bin/env", "--default-signal=INT",
                                 "--chdir=" + options.folder};
  words.insert(words.end(), options.environment.begin(), options.environment.end());
  words.insert(words.end(), command.begin(), command.end());
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  pid_t pid = 0;
  errno = posix_spawn(&pid, pointers[0], &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (errno != 0) throw std::system_error(errno, std::generic_category(), words[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  // Ends what a shell has left in the background: timeout(1) makes a process group.
  kill(-pid, SIGKILL);
  RunResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status),
                   Content(files[1].Get()), Content(files[2].Get())};
  LastRun::Instance().Keep(command, result);
  return result;
}

}  // namespace tarn::test

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
#include <fstream>
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
  OwnedFd(OwnedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  OwnedFd(const OwnedFd&) = delete;
  OwnedFd& operator=(const OwnedFd&) = delete;
  OwnedFd& operator=(OwnedFd&&) = delete;
  ~OwnedFd() { Close(); }

  int Get() const noexcept { return fd_; }
  void Close() noexcept {
    if (fd_ >= 0) close(std::exchange(fd_, -1));
  }

 private:
  int fd_;
};

// A nameless file that holds `content`, opened at its start and not inherited by programs.
inline OwnedFd ScratchFile(std::string_view content = {}) {
  OwnedFd file(memfd_create("scratch", MFD_CLOEXEC));
  while (!content.empty()) {
    const ssize_t written = write(file.Get(), content.data(), content.size());
    if (written < 0) throw std::system_error(errno, std::generic_category(), "write");
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  lseek(file.Get(), 0, SEEK_SET);
  return file;
}

// The whole content of the file `fd`, from its start.
inline std::string Content(int fd) {
  std::string content;
  char block[4096];
  off_t at = 0;
  ssize_t got = 0;
  while ((got = pread(fd, block, sizeof block, at)) > 0) {
    content.append(block, static_cast<std::size_t>(got));
    at += got;
  }
  return content;
}

struct RunOptions {
  std::string input{};                     // What standard input holds.
  std::vector<std::string> environment{};  // "NAME=value", over the test's own environment.
  std::string folder{};                    // Where to run; empty: the test's own folder.
  int input_fd = -1;                       // Standard input, instead of `input`.
  int output_fd = -1;                      // Standard output, instead of capturing it.
};

struct RunResult {
  int exit_code;  // 128 plus the signal's number when a signal ended the program.
  std::string output;
  std::string errors;
  bool ended_by_signal = false;
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
    text_ = "the last run was:";
    for (const std::string& word : command) text_ += ' ' + testing::PrintToString(word);
    text_ += "\nexit code " + std::to_string(result.exit_code) + ", standard error:\n";
    text_ += result.errors;
  }

 private:
  void OnTestStart(const testing::TestInfo&) override { text_.clear(); }
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (result.failed() && !text_.empty()) std::cout << text_ << '\n';
  }

  std::string text_;
};

// A running program, started by env(1). A descriptor that it must not inherit must be
// close-on-exec.
class RunningProgram {
 public:
  // `command` is a program (a path, or a name to search for) and its arguments. Throws
  // std::system_error.
  explicit RunningProgram(const std::vector<std::string>& command, const RunOptions& options = {})
      : command_(command),
        input_(ScratchFile(options.input)),
        output_(ScratchFile()),
        errors_(ScratchFile()) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const auto use = [&](int given, const OwnedFd& own, int as) {
      posix_spawn_file_actions_adddup2(&actions, given >= 0 ? given : own.Get(), as);
    };
    use(options.input_fd, input_, STDIN_FILENO);
    use(options.output_fd, output_, STDOUT_FILENO);
    use(-1, errors_, STDERR_FILENO);

    std::vector<std::string> words{"/usr/bin/env"};
    if (!options.folder.empty()) words.push_back("--chdir=" + options.folder);
    words.insert(words.end(), options.environment.begin(), options.environment.end());
    words.insert(words.end(), command.begin(), command.end());
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    // Resets SIGINT: a test that a shell runs in the background has inherited it as ignored.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGINT);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const int error =
        posix_spawn(&pid_, words[0].c_str(), &actions, &attributes, pointers.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::system_error(error, std::generic_category(), words[0]);
  }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;
  ~RunningProgram() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  void Signal(int signal) const noexcept { kill(pid_, signal); }

  bool Running() const noexcept {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
  }

  // Waits until the program handles `signal` itself. Returns false if it ends before that.
  bool AwaitHandlerOf(int signal) const {
    for (;;) {
      std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
      std::string word;
      while (status >> word && word != "SigCgt:") {
        if (word == "(zombie)") return false;
      }
      if (!(status >> word)) return false;
      if ((std::stoull(word, nullptr, 16) >> static_cast<unsigned>(signal - 1) & 1U) != 0)
        return true;
      usleep(1000);
    }
  }

  // Waits for the program's end. Call it once.
  RunResult Wait() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = 0;
    const int exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    RunResult result{exit_code, Content(output_.Get()), Content(errors_.Get()), !WIFEXITED(status)};
    LastRun::Instance().Keep(command_, result);
    return result;
  }

 private:
  std::vector<std::string> command_;
  OwnedFd input_;
  OwnedFd output_;
  OwnedFd errors_;
  pid_t pid_ = 0;
};

// Runs `command` to its end.
inline RunResult RunProgram(const std::vector<std::string>& command,
                            const RunOptions& options = {}) {
  return RunningProgram(command, options).Wait();
}

}  // namespace tarn::test

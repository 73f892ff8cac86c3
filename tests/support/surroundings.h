// The surroundings of tested code: environment variables, files, standard error.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <locale>
#include <optional>
#include <string>
#include <utility>

#include "support/run_program.h"

namespace tarn::test {

// Sets an environment variable, or unsets it if the value is null, and restores it when the object
// is destroyed. No other thread may read the environment meanwhile.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    Set(value);
  }
  ScopedVariable(const char* name, const std::string& value)
      : ScopedVariable(name, value.c_str()) {}
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;
  ~ScopedVariable() { Set(old_ ? old_->c_str() : nullptr); }

 private:
  void Set(const char* value) const {
    unsetenv(name_);
    if (value != nullptr) setenv(name_, value, 1);
  }

  const char* name_;
  std::optional<std::string> old_;
};

// Punctuation of numbers for a locale, with a decimal comma.
class Punctuation : public std::numpunct<char> {
 public:
  explicit Punctuation(std::string grouping, char separator = '.')
      : grouping_(std::move(grouping)), separator_(separator) {}

 private:
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return separator_; }
  std::string do_grouping() const override { return grouping_; }

  const std::string grouping_;
  const char separator_;
};

// A new folder, which is removed with its content when the object is destroyed.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tarn_test.XXXXXX").string();
    path_ = mkdtemp(pattern.data());
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string Path(const std::string& name) const { return path_ / name; }

  // Writes or overwrites a file, and returns its path.
  std::string Write(const std::string& name, const std::string& content,
                    mode_t mode = S_IRUSR | S_IWUSR) const {
    std::string path = Path(name);
    std::ofstream(path, std::ios::binary) << content;
    chmod(path.c_str(), mode);
    return path;
  }

 private:
  std::filesystem::path path_;
};

// Catches the output to standard error.
class StandardError {
 public:
  StandardError() : file_(ScratchFile()), old_(dup(STDERR_FILENO)) {
    // Opened like a log file: each write goes to the end, even if others write too.
    fcntl(file_.Get(), F_SETFL, O_APPEND);
    dup2(file_.Get(), STDERR_FILENO);
  }
  StandardError(const StandardError&) = delete;
  StandardError& operator=(const StandardError&) = delete;
  ~StandardError() { dup2(old_.Get(), STDERR_FILENO); }

  std::string Text() const { return Content(file_.Get()); }

 private:
  OwnedFd file_;
  OwnedFd old_;
};

}  // namespace tarn::test

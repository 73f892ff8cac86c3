// What code under test finds around it: variables, files, standard error.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "support/run_program.h"

namespace tarn::test {

// Sets an environment variable, or unsets it for a null value, and puts it back with the object's
// end. No other thread may read the environment meanwhile.
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
    if (value == nullptr) {
      unsetenv(name_);
    } else {
      setenv(name_, value, 1);
    }
  }

  const char* name_;
  std::optional<std::string> old_;
};

// A new folder, gone with the object and all that is in it.
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

  // Writes a file over whatever it held; its path.
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

// Catches what is written to standard error.
class StandardError {
 public:
  StandardError() : file_(ScratchFile()), old_(dup(STDERR_FILENO)) {
    // As a log's file is opened: each write goes to the end, whoever else writes.
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

// The product platform's logging library, as far as the plug-in uses it.
#pragma once

// Where a log record comes from. Built for one log call and destroyed after it. Neither text is
// copied by the plug-in's side of the contract: both must outlive the record, and string literals
// do.
class LocationInfo {
 public:
  LocationInfo(const char* file, const char* function, int line);

  const char* File() const noexcept { return file_; }
  const char* Function() const noexcept { return function_; }
  int Line() const noexcept { return line_; }

 private:
  const char* file_;
  const char* function_;
  int line_;
};

// Takes records for the product log. Filtering by level, formatting and the destination are the
// library's business.
//
// Each call may come from any thread. `message` (bytes, NUL-terminated, possibly null) and
// `location` are borrowed for the duration of the call. The plug-in lets anything thrown pass.
class LogProcess {
 public:
  // `code` is a product error code or another library's result code.
  static void Error(unsigned int code, const char* message, const LocationInfo& location);
  static void Warn(const char* message, const LocationInfo& location);
  static void Debug(const char* message, const LocationInfo& location);
};

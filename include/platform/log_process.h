// The product platform's logging library, as far as the plug-in uses it.
#pragma once

// Where a log record comes from. The plug-in builds one for each log call and destroys it right
// after, also when the call throws, so that a library that counts its records finds none left.
class LocationInfo {
 public:
  // Requires: both texts (NUL-terminated) outlive the record. The plug-in passes string literals.
  LocationInfo(const char* file, const char* function, int line);
  LocationInfo(const LocationInfo&) = delete;
  LocationInfo& operator=(const LocationInfo&) = delete;
  ~LocationInfo();

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

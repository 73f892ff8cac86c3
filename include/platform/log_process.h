// The product platform's logging library, as far as the plug-in uses it.
#pragma once

// The source of a log record. The plug-in builds one for each log call and destroys it right after
// the call, also if the call throws, so that a library that counts these objects finds none left.
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

// Takes records for the product log. The library decides on the filter by level, the format and the
// destination.
//
// Any thread may call. `message` (bytes, NUL-terminated, possibly null) and `location` are borrowed
// for the duration of the call. The plug-in does not catch exceptions of these functions.
class LogProcess {
 public:
  // `code` is a product error code or another library's result code.
  static void Error(unsigned int code, const char* message, const LocationInfo& location);
  static void Warn(const char* message, const LocationInfo& location);
  static void Debug(const char* message, const LocationInfo& location);
};

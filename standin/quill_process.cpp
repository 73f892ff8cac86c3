// TARN_PROC_ID and TARN_PROC_HANDLE hold the process's identity and handle, as unsigned decimal
// numbers of 32 bits. The defaults are the operating system's process id and 0.
#include "platform/quill_process.h"

#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <string>
#include <string_view>

#include "standin/warning.h"

namespace {

unsigned int FromEnvironment(const char* variable, unsigned int fallback, const char* function) {
  using namespace tarn::standin;
  const char* const value = std::getenv(variable);
  if (value == nullptr) return fallback;
  const char* const end = value + std::string_view(value).size();
  unsigned int number = 0;
  const auto [stop, error] = std::from_chars(value, end, number);
  if (error == std::errc() && stop == end) return number;
  const std::string message = std::string(variable) + ": \"" + value +
                              "\" is no unsigned 32-bit decimal number; " +
                              std::to_string(fallback) + " is used";
  Warn(Error(Code::kConfiguration, message), LocationInfo("quill_process.cpp", function, __LINE__));
  return fallback;
}

}  // namespace

unsigned int QuillGetProcId() {
  return FromEnvironment("TARN_PROC_ID", static_cast<unsigned int>(getpid()), __func__);
}

unsigned int QuillGetProcHandle() { return FromEnvironment("TARN_PROC_HANDLE", 0, __func__); }

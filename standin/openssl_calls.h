#pragma once

#include <openssl/err.h>

#include "standin/error.h"

namespace tarn::standin {

// Removes, when it is destroyed, all errors that OpenSSL has added to the thread's queue since it
// was constructed. The process's own TLS code would otherwise take them for its own failures.
class ErrorQueueMark {
 public:
  ErrorQueueMark() noexcept { ERR_set_mark(); }
  ErrorQueueMark(const ErrorQueueMark&) = delete;
  ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;
  ~ErrorQueueMark() { ERR_pop_to_mark(); }
};

// For OpenSSL calls that fail only if OpenSSL itself is short of memory, entropy or a provider.
inline void RequireLibrary(bool success) {
  Require(success, Code::kLibraryFailure, "the cipher library failed");
}

}  // namespace tarn::standin

#pragma once

#include <openssl/err.h>

#include "standin/error.h"

namespace tarn::standin {

// What fails in here leaves nothing in the thread's OpenSSL error queue, where the process's own
// TLS code would take it for its own failure.
class ErrorQueueMark {
 public:
  ErrorQueueMark() noexcept { ERR_set_mark(); }
  ErrorQueueMark(const ErrorQueueMark&) = delete;
  ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;
  ~ErrorQueueMark() { ERR_pop_to_mark(); }
};

// For OpenSSL calls that fail only when OpenSSL itself is short of memory, entropy or a provider.
inline void RequireLibrary(bool success) {
  Require(success, Code::kLibraryFailure, "the cipher library failed");
}

}  // namespace tarn::standin

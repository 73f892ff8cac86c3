// Warnings of the stand-in itself, as opposed to the records that its callers log.
#pragma once

#include "platform/log_process.h"
#include "standin/error.h"

namespace tarn::standin {

// Receives a warning. `message` is borrowed for the call. Must not throw.
using WarningObserver = void(void* context, Code code, const char* message);

// Sets the function that is called for each warning of the calling thread, whether or not the log
// shows the warning; null removes it. A program looks up this setter by the name below, through
// the handle of a loaded plug-in. If it is not found, the plug-in runs on another platform.
using ObserveWarnings = void(WarningObserver* observer, void* context);
inline constexpr const char* kObserveWarnings = "tarn_standin_observe_warnings";

// Passes `error` to the thread's observer, and logs it. Throws std::bad_alloc.
void Warn(const Error& error, const LocationInfo& location);

}  // namespace tarn::standin

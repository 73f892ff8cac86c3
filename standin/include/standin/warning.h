// What the stand-in itself warns of, apart from the records that its callers log.
#pragma once

#include "platform/log_process.h"
#include "standin/error.h"

namespace tarn::standin {

// Hears of a warning. `message` is borrowed for the call. Nothing may be thrown.
using WarningObserver = void(void* context, Code code, const char* message);

// Has `observer` told of each warning that the calling thread causes, whether or not the log shows
// it; null ends that. A program finds this function by the name below in the platform that a
// plug-in has brought along, or learns that the platform is another.
using ObserveWarnings = void(WarningObserver* observer, void* context);
inline constexpr const char* kObserveWarnings = "tarn_standin_observe_warnings";

// Tells the thread's observer of `error`, and logs it. Throws std::bad_alloc.
void Warn(const Error& error, const LocationInfo& location);

}  // namespace tarn::standin

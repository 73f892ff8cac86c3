#include "standin/warning.h"

namespace {

struct Observation {
  tarn::standin::WarningObserver* observer;
  void* context;
};
thread_local constinit Observation observation{nullptr, nullptr};

}  // namespace

extern "C" void tarn_standin_observe_warnings(tarn::standin::WarningObserver* observer,
                                              void* context);
extern "C" void tarn_standin_observe_warnings(tarn::standin::WarningObserver* observer,
                                              void* context) {
  observation = {observer, context};
}

namespace tarn::standin {

void Warn(const Error& error, const LocationInfo& location) {
  if (observation.observer != nullptr) {
    observation.observer(observation.context, error.code, error.what());
  }
  LogProcess::Warn(error.what(), location);
}

}  // namespace tarn::standin

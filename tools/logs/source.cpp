#include "logs/source.h"

namespace tarn::host {

void Found::Clear() {
  statements.clear();
  owned.clear();
  first_time.reset();
  last_time.reset();
  entries = damaged = too_long = impossible_times = 0;
}

}  // namespace tarn::host

// "Strip support files" runs a fixed list of sub-steps, each engine its own,
// on one copy of the work entry, and stops at the first that fails.

#ifndef VELMAR_ENGINE_SUPPORT_COMMON_WORK_H_
#define VELMAR_ENGINE_SUPPORT_COMMON_WORK_H_

#include <cstdint>
#include <initializer_list>

#include "base/value.h"

namespace velmar {

// Answers the first non-zero status, or the last step's (0 for no steps).
template <class Engine>
int32_t runSubsteps(Engine& engine, const Value& entry,
                    std::initializer_list<int32_t (Engine::*)(Value&)> steps) {
  // The sub-steps may write to their entry; the work list's stays as built.
  Value copy = entry;
  int32_t status = 0;
  for (auto step : steps) {
    status = (engine.*step)(copy);
    if (status != 0) break;
  }
  return status;
}

}  // namespace velmar

#endif  // VELMAR_ENGINE_SUPPORT_COMMON_WORK_H_

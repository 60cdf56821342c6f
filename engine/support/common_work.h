// "Strip support files" runs a fixed list of shared steps, each engine its
// own list, on one request read from the entry, and stops at the first that
// fails.

#ifndef VELMAR_ENGINE_SUPPORT_COMMON_WORK_H_
#define VELMAR_ENGINE_SUPPORT_COMMON_WORK_H_

#include <cstdint>
#include <initializer_list>

#include "engine/support/support_host.h"
#include "engine/support/work_entry.h"
#include "base/value.h"

namespace velmar {

// A shared step: the host it runs on and the request it serves.
using SupportStep = int32_t (*)(SupportHost& host, const SupportRequest& request);

// Answers the first non-zero status, or the last step's (0 for no steps).
int32_t runSupportSteps(SupportHost& host, const Value& entry, std::initializer_list<SupportStep> steps);

// A shared step as a work-list step of an engine, so that an entry may name
// it directly: the engine reads the entry into its request first.
template <SupportStep step>
int32_t supportWorkStep(SupportHost& host, Value& entry) {
  return step(host, host.supportRequest(entry));
}

}  // namespace velmar

#endif  // VELMAR_ENGINE_SUPPORT_COMMON_WORK_H_

#include "engine/support/common_work.h"

namespace velmar {

int32_t runSupportSteps(SupportHost& host, const Value& entry, std::initializer_list<SupportStep> steps) {
  const SupportRequest request = host.supportRequest(entry);
  int32_t status = 0;
  for (SupportStep step : steps) {
    status = step(host, request);
    if (status != 0) break;
  }
  return status;
}

}  // namespace velmar

// SupportRequest: what the support steps need to know about a request.
//
// The two engines file the request-wide facts of their "Strip support files"
// entry under different keys; each engine reads its own entry into this one
// record (SupportHost::supportRequest), so the shared steps never ask which
// engine they serve.

#ifndef VELMAR_ENGINE_SUPPORT_WORK_ENTRY_H_
#define VELMAR_ENGINE_SUPPORT_WORK_ENTRY_H_

#include "base/value.h"

namespace velmar {

struct SupportRequest {
  Value deviceClasses;            // device class names of the chosen products
  Value products;                 // the chosen board codes
  Value personalizationVariants;  // the personalization variants of the chosen stations
  // Whether the steps also log what they drop ("--- ... scrub"); the legacy
  // engine's users read its log as the list of what left the bundle.
  bool reportScrubs = false;
};

}  // namespace velmar

#endif  // VELMAR_ENGINE_SUPPORT_WORK_ENTRY_H_

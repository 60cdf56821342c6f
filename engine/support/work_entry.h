// The request-wide parameters a support step reads from its work entry. The
// two engines file them under different keys; the host says which engine
// this is.

#ifndef VELMAR_ENGINE_SUPPORT_WORK_ENTRY_H_
#define VELMAR_ENGINE_SUPPORT_WORK_ENTRY_H_

#include "engine/support/support_host.h"
#include "base/value.h"

namespace velmar {

// Device class names of the chosen products.
inline Value workDeviceClasses(const SupportHost& host, const Value& entry) {
  return entry.get(host.legacyMessages() ? "workDeviceClassList" : "workAllDeviceClasses");
}

// The chosen board codes.
inline Value workProducts(const SupportHost& host, const Value& entry) {
  return entry.get(host.legacyMessages() ? "workProductList" : "workAllProducts");
}

// The personalization variants of the chosen stations.
inline Value workPersonalizationVariants(const SupportHost& host, const Value& entry) {
  return entry.get(host.legacyMessages() ? "workPersonalizationVariantList"
                                         : "workAllPersonalizationVariants");
}

}  // namespace velmar

#endif  // VELMAR_ENGINE_SUPPORT_WORK_ENTRY_H_

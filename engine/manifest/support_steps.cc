// The support-file steps of this engine: the shared steps of engine/support
// in this engine's order, over its keep set and rewritten files.

#include "engine/manifest/stripper3.h"
#include "engine/support/common_work.h"
#include "engine/support/firmware_maps.h"
#include "engine/support/folder_scrubs.h"
#include "engine/support/restore_tools.h"

namespace velmar {

int32_t Stripper3::stripCommonWork(Value& entry) {
  return runSupportSteps(*this, entry,
                         {stripRestoreFirmwareDeviceMapDotTxt, stripRestoreFirmwareDeviceMapDotPlist,
                          stripRestoreFirmwareTargetMapDotTxt, stripRestoreFirmwarePlatformKeysDotPlist,
                          stripRPKGs, stripDebugFolder, stripHomeDiags, stripSDKs, stripBundleImages,
                          stripRestoreTools, stripFactoryDiskImage});
}

SupportRequest Stripper3::supportRequest(const Value& entry) const {
  SupportRequest request;
  request.deviceClasses = entry.get("workAllDeviceClasses");
  request.products = entry.get("workAllProducts");
  request.personalizationVariants = entry.get("workAllPersonalizationVariants");
  return request;
}

}  // namespace velmar

// The support-file steps, shared with the legacy engine and run here over
// this engine's keep set and rewritten files.

#include "engine/manifest/stripper3.h"
#include "engine/support/common_work.h"
#include "engine/support/cookie.h"
#include "engine/support/firmware_maps.h"
#include "engine/support/folder_scrubs.h"
#include "engine/support/invisibles.h"
#include "engine/support/restore_tools.h"

namespace velmar {

int32_t Stripper3::stripCommonWork(Value& entry) {
  return runSubsteps(
      *this, entry,
      {&Stripper3::stripRestoreFirmwareDeviceMapDotTxt, &Stripper3::stripRestoreFirmwareDeviceMapDotPlist,
       &Stripper3::stripRestoreFirmwareTargetMapDotTxt, &Stripper3::stripRestoreFirmwarePlatformKeysDotPlist,
       &Stripper3::stripRPKGs, &Stripper3::stripDebugFolder, &Stripper3::stripHomeDiags,
       &Stripper3::stripSDKs, &Stripper3::stripBundleImages, &Stripper3::stripRestoreTools,
       &Stripper3::stripFactoryDiskImage});
}

int32_t Stripper3::stripRestoreFirmwareDeviceMapDotTxt(Value& entry) {
  return velmar::stripRestoreFirmwareDeviceMapDotTxt(*this, entry);
}
int32_t Stripper3::stripRestoreFirmwareDeviceMapDotPlist(Value& entry) {
  return velmar::stripRestoreFirmwareDeviceMapDotPlist(*this, entry);
}
int32_t Stripper3::stripRestoreFirmwareTargetMapDotTxt(Value& entry) {
  return velmar::stripRestoreFirmwareTargetMapDotTxt(*this, entry);
}
int32_t Stripper3::stripRestoreFirmwarePlatformKeysDotPlist(Value& entry) {
  return velmar::stripRestoreFirmwarePlatformKeysDotPlist(*this, entry);
}
int32_t Stripper3::stripRPKGs(Value& entry) { return velmar::stripRPKGs(*this, entry); }
int32_t Stripper3::stripDebugFolder(Value& entry) { return velmar::stripDebugFolder(*this, entry); }
int32_t Stripper3::stripHomeDiags(Value& entry) { return velmar::stripHomeDiags(*this, entry); }
int32_t Stripper3::stripSDKs(Value& entry) { return velmar::stripSDKs(*this, entry); }
int32_t Stripper3::stripBundleImages(Value& entry) { return velmar::stripBundleImages(*this, entry); }
int32_t Stripper3::stripRestoreTools(Value& entry) { return velmar::stripRestoreTools(*this, entry); }
int32_t Stripper3::stripFactoryDiskImage(Value& entry) { return velmar::stripFactoryDiskImage(*this, entry); }
int32_t Stripper3::stripInvisibles(Value& entry) { return velmar::stripInvisibles(*this, entry); }
int32_t Stripper3::leaveCookie(Value& entry) { return velmar::leaveCookie(*this, entry); }

}  // namespace velmar

#include "engine/manifest/stripper3.h"

namespace velmar {

int32_t Stripper3::stripCommonWork(Value& entry) { return 0; }
int32_t Stripper3::stripRestoreFirmwareDeviceMapDotTxt(Value& entry) { return 0; }
int32_t Stripper3::stripRestoreFirmwareDeviceMapDotPlist(Value& entry) { return 0; }
int32_t Stripper3::stripRestoreFirmwareTargetMapDotTxt(Value& entry) { return 0; }
int32_t Stripper3::stripRestoreFirmwarePlatformKeysDotPlist(Value& entry) { return 0; }
int32_t Stripper3::stripRPKGs(Value& entry) { return 0; }
int32_t Stripper3::stripDebugFolder(Value& entry) { return 0; }
int32_t Stripper3::stripHomeDiags(Value& entry) { return 0; }
int32_t Stripper3::stripSDKs(Value& entry) { return 0; }
int32_t Stripper3::stripBundleImages(Value& entry) { return 0; }
int32_t Stripper3::stripRestoreTools(Value& entry) { return 0; }
int32_t Stripper3::stripFactoryDiskImage(Value& entry) { return 0; }
int32_t Stripper3::stripInvisibles(Value& entry) { return 0; }
int32_t Stripper3::leaveCookie(Value& entry) { return 0; }

}  // namespace velmar

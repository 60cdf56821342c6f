// The support-file steps of this engine: the shared steps of engine/support
// in this engine's order, and the step table.

#include "engine/legacy/stripper2.h"
#include "engine/support/common_work.h"
#include "engine/support/cookie.h"
#include "engine/support/firmware_maps.h"
#include "engine/support/folder_scrubs.h"
#include "engine/support/invisibles.h"
#include "engine/support/restore_tools.h"

namespace velmar {

namespace {

const StepTable<Stripper2>& stepTable() {
  static const StepTable<Stripper2> table = {
      {"stripRestoreUsingHexloom:", &Stripper2::stripRestoreUsingHexloom},
      {"stripRestorePlistUsingHexloom:", &Stripper2::stripRestorePlistUsingHexloom},
      {"stripRestoreWithoutHexloom:", &Stripper2::stripRestoreWithoutHexloom},
      {"stripBuildManifestWithoutHexloom:", &Stripper2::stripBuildManifestWithoutHexloom},
      {"stripCommonWork:", &Stripper2::stripCommonWork},
      {"mergeStrippedManifests:", &Stripper2::mergeStrippedManifests},
      {"mergeModifiedFiles:", &Stripper2::mergeModifiedFiles},
      {"stripRestoreFirmwareDeviceMapDotTxt:", &supportWorkStep<stripRestoreFirmwareDeviceMapDotTxt>},
      {"stripRestoreFirmwareDeviceMapDotPlist:", &supportWorkStep<stripRestoreFirmwareDeviceMapDotPlist>},
      {"stripRestoreFirmwareTargetMapDotTxt:", &supportWorkStep<stripRestoreFirmwareTargetMapDotTxt>},
      {"stripRestoreFirmwarePlatformKeysDotPlist:", &supportWorkStep<stripRestoreFirmwarePlatformKeysDotPlist>},
      {"stripRPKGs:", &supportWorkStep<stripRPKGsPerBoard>},
      {"stripDebugFolder:", &supportWorkStep<stripDebugFolder>},
      {"stripUnencryptedImages:", &supportWorkStep<stripUnencryptedImages>},
      {"stripHomeDiags:", &supportWorkStep<stripHomeDiags>},
      {"stripSDKs:", &supportWorkStep<stripSDKs>},
      {"stripBundleImages:", &supportWorkStep<stripBundleImages>},
      {"stripBogusRestoreImagesInRootDirectory:", &supportWorkStep<stripBogusRestoreImagesInRootDirectory>},
      {"stripRestoreTools:", &supportWorkStep<stripRestoreToolsChecked>},
      {"stripInvisibles:", &supportWorkStep<stripInvisiblesWithContents>},
      {"leaveCookie:", &supportWorkStep<leaveCookie>},
  };
  return table;
}

}  // namespace

Status Stripper2::performStep(std::string_view selector, Value& entry) {
  return stepTable().perform(*this, selector, entry);
}

int32_t Stripper2::stripCommonWork(Value& entry) {
  return runSupportSteps(*this, entry,
                         {stripRestoreFirmwareDeviceMapDotTxt, stripRestoreFirmwareDeviceMapDotPlist,
                          stripRestoreFirmwareTargetMapDotTxt, stripRestoreFirmwarePlatformKeysDotPlist,
                          stripRPKGsPerBoard, stripDebugFolder, stripUnencryptedImages, stripHomeDiags,
                          stripSDKs, stripBundleImages, stripBogusRestoreImagesInRootDirectory,
                          stripRestoreToolsChecked});
}

}  // namespace velmar

// The per-station file-list step on the sample bundle, with entries taken
// from the engine's own work list.

#include <gtest/gtest.h>

#include "tests/engine/manifest/engine_fixture.h"

namespace velmar::testing {
namespace {

class FileListTest : public EngineTest {
 protected:
  // Runs the engine's first file-list step; answers its status.
  int32_t run(Stripper3& e) {
    Value entry = entryFor(e, "buildFilelistFromBuildManifest:");
    return e.buildFilelistFromBuildManifest(entry);
  }
};

TEST_F(FileListTest, KeepsNamedFilesWithAncestorsAndLinksOnlyTopLevelNamesThatDifferBeyondCase) {
  BundleDescription d = synth::sampleBundle();
  for (synth::ManifestItem& item : d.findIdentity("r13ap", "Factory - Shipping Settings")->manifest) {
    if (item.name == "OS") item.path = "Sub/038-1300-001.dmg";
    if (item.name == "RestoreRamDisk") item.path = "c2restoreramdisk.dmg";
    if (item.name == "KernelCache") item.path = "./kernelcache.x";
  }
  write(d);
  auto e = engine(arrayOf({"r13"}), arrayOf({"ss"}));
  Value entry = entryFor(*e, "buildFilelistFromBuildManifest:");
  ASSERT_EQ(e->buildFilelistFromBuildManifest(entry), 0);
  // The malformed item is not kept, yet counts as a chosen kernel cache.
  EXPECT_EQ(takeLog(),
            "+++ BuildManifest.plist BasebandFirmware found BBX2_3.04.25.Release.bbfw.\n"
            "!!! WARNING: BuildManifest.plist BuildIdentity r13ap \"ss\" KernelCache malformed manifest item "
            "./kernelcache.x.\n");
  EXPECT_EQ(e->kernelCachesSet(), setOf({"kernelcache.release.xr2120x", "./kernelcache.x"}));
  ASSERT_EQ(e->buildFilelistFromBuildManifest(entry), 0);  // running again changes nothing
  const std::string fa = "Restore/Firmware/all_flash/all_flash.r13ap.production";
  EXPECT_EQ(
      kept(*e),
      (Paths{"Restore", "Restore/Sub", "Restore/Sub/038-1300-001.dmg", "Restore/c2restoreramdisk.dmg",
             "Restore/kernelcache.release.xr2120x", "Restore/Firmware", "Restore/Firmware/all_flash", fa,
             fa + "/bootloader.r13ap.img", fa + "/manifest", "Restore/Firmware/BBX2_3.04.25.Release.bbfw",
             "Restore/Firmware/dfu", "Restore/Firmware/dfu/stage1.r13ap.RELEASE.dfu", "Restore/Diags",
             "Restore/Diags/diag-r13.img"}));
  EXPECT_EQ(e->modifiedFilelist(),
            dictOf({{"Restore/kernelcache.release.r13", Value::makeData("kernelcache.release.xr2120x")}}));
  EXPECT_EQ(e->strippedBuildIdentities().get("r13ap").get("Factory - Shipping Settings").count(), 1u);
}

TEST_F(FileListTest, StationWithoutOsImageSkipsItAndLinksTheRamdiskByChipName) {
  write();
  auto e = engine(arrayOf({"r13"}), arrayOf({"support"}));
  ASSERT_EQ(run(*e), 0);
  EXPECT_TRUE(logged("--- skipping r13ap \"support\" OS: 038-1300-001.dmg.")) << logText();
  EXPECT_EQ(kept(*e).count("Restore/038-1300-001.dmg"), 0u);
  EXPECT_EQ(
      e->modifiedFilelist(),
      dictOf({{"Restore/C2FactorySupportRamDisk.dmg", Value::makeData("018-2120-002.dmg")},
              {"Restore/kernelcache.release.r13", Value::makeData("kernelcache.release.xr2120x")},
              {"Restore/kernelcache.development.r13", Value::makeData("kernelcache.development.xr2120x")}}));
}

TEST_F(FileListTest, ReferenceVariantsComeFirstAndTemplatesTakeTheCallersVariants) {
  write();
  auto e = engine(arrayOf({"r13"}), arrayOf({"mac-swdl"}));
  ASSERT_EQ(run(*e), 0);
  EXPECT_EQ(e->strippedBuildIdentities().get("r13ap").dict().keys(),
            (std::vector<std::string>{"Factory - Software Download", "macOS Factory - Software Download"}));
  e = engine(arrayOf({"r13"}), arrayOf({"ss-tmpl"}), dictOf({{"ss-tmpl", arrayOf({"Factory - Support"})}}));
  ASSERT_EQ(run(*e), 0);
  EXPECT_EQ(e->strippedBuildIdentities().get("r13ap").dict().keys(),
            std::vector<std::string>{"Factory - Support"});
  // The template installs an OS image, so the support identity's OS stays.
  EXPECT_EQ(kept(*e).count("Restore/038-1300-001.dmg"), 1u);
}

TEST_F(FileListTest, MissingIdentityIsLoggedPerDeviceClassAndKeepsNothing) {
  write();
  auto e = engine(arrayOf({"r13"}), arrayOf({"recovery"}));
  Value entry = entryFor(*e, "buildFilelistFromBuildManifest:");
  entry.set("workDeviceClasses", arrayOf({"r13dev", "r13ap"}));
  EXPECT_EQ(e->buildFilelistFromBuildManifest(entry), 1);
  EXPECT_EQ(logText(), "XXX ERROR: BuildIdentity r13dev (Recovery Customer Install) not found.\n");
  // The second device class was still looked at.
  EXPECT_EQ(e->strippedBuildIdentities().get("r13ap").get("Recovery Customer Install").count(), 1u);
  EXPECT_EQ(e->copiedFilelist().count() + e->modifiedFilelist().count(), 0u);
}

TEST_F(FileListTest, MissingBasebandFilesAreReportedByTheProductsPrefixes) {
  BundleDescription d = synth::sampleBundle();
  d.omitPath("Restore/Firmware/BBX2_3.04.25.Release.bbfw");
  d.omitPath("Restore/Firmware/BBX0_5.11.07.Release.bbfw");
  std::erase_if(d.findIdentity("r11ap", "Factory - Shipping Settings")->manifest,
                [](const synth::ManifestItem& item) { return item.name == "BasebandFirmware"; });
  write(d);
  auto logOf = [&](const char* product, const char* station) {
    auto e = engine(arrayOf({product}), arrayOf({station}));
    EXPECT_EQ(run(*e), 0);
    return takeLog();
  };
  EXPECT_EQ(logOf("r13", "ss"), "+++ no BasebandFirmware files for BBX2, strip result may not work\n");
  EXPECT_EQ(logOf("r11", "swdl"), "!!! WRNING: found no BasebandFirmware files with prefixes BBX0.\n");
  // A personalized baseband comes only with an identity that lists it.
  Stripper3::tables().knownProducts.dictMut().find("r11")->set("BasebandIsPersonalized", true);
  EXPECT_EQ(logOf("r11", "ss"), "");
}

}  // namespace
}  // namespace velmar::testing

// The unpersonalized restore step of the legacy engine: the restore property
// list and the folder layout decide what a device class and station keep.

#include <gtest/gtest.h>

#include "engine/legacy/stripper2.h"
#include "tests/engine/legacy/legacy_fixture.h"

namespace velmar::testing {
namespace {

class RestorePlistStepTest : public LegacyTest {
 protected:
  void SetUp() override {
    LegacyTest::SetUp();
    bundle_ = synth::legacyBundle(false);
  }
  // Writes the bundle and runs the step for r13 and `station`.
  int32_t run(const char* station = "ss", std::function<void(Value&)> edit = nullptr) {
    write(bundle_);
    e_ = engine(arrayOf({"r13"}), arrayOf({station}), unpersonalized());
    Value item = entryFor(*e_, "stripRestoreWithoutHexloom:");
    if (edit) edit(item);
    return e_->stripRestoreWithoutHexloom(item);
  }
  void setRamDisks(std::vector<synth::TableRow> rows) { bundle_.restore.ramDisksByPlatform = std::move(rows); }

  BundleDescription bundle_;
  std::unique_ptr<Stripper2> e_;
};

TEST_F(RestorePlistStepTest, KeepsTheClassAndStationFromTheLayoutAndLinksTheRamdisk) {
  ASSERT_EQ(run(), 0) << logText();
  EXPECT_EQ(lastKept(*e_),
            (Paths{"Restore", "Restore/018-2120-001.dmg", "Restore/038-1300-001.dmg", "Restore/Firmware",
                   "Restore/Firmware/BBX2_3.04.25.Release.bbfw", "Restore/Firmware/all_flash",
                   "Restore/Firmware/all_flash/all_flash.r13ap.production",
                   "Restore/Firmware/all_flash/all_flash.r13ap.production/bootloader.r13ap.img",
                   "Restore/Firmware/all_flash/all_flash.r13ap.production/manifest", "Restore/Firmware/dfu",
                   "Restore/Firmware/dfu/stage1.r13ap.DEVELOPMENT.dfu",
                   "Restore/Firmware/dfu/stage1.r13ap.RELEASE.dfu", "Restore/kernelcache.development.xr2120x",
                   "Restore/kernelcache.release.xr2120x"}));
  const Value record = lastRecord(*e_);
  EXPECT_EQ(record.get("Restore/C2-User-RAMDisk.dmg"), Value::makeData("018-2120-001.dmg"));
  const Value plist = record.get("Restore/Restore.plist");
  EXPECT_EQ(plist.get("KernelCachesByTarget"), dictOf({{"r13", dictOf({{"Release", "kernelcache.release.xr2120x"}})}}));
  EXPECT_EQ(plist.get("RamDisksByPlatform"), dictOf({{"xr2120x", dictOf({{"User", "018-2120-001.dmg"}})}}));
  EXPECT_EQ(plist.get("SystemRestoreImagesByTarget"), dictOf({{"r13", dictOf({{"User", "038-1300-001.dmg"}})}}));
  // Without a build manifest the ramdisk is not cross-checked, silently.
  EXPECT_EQ(takeLog(),
            "+++ Restore kernelcache found kernelcache.development.xr2120x, kernelcache.release.xr2120x.\n"
            "--- Restore kernelcache scrub kernelcache.development.xr2100x, kernelcache.release.xr2100x.\n"
            "+++ Restore all_flash found all_flash.r13ap.production.\n"
            "--- Restore all_flash scrub all_flash, all_flash.r11ap.production, all_flash.r13ap.factoryfa, "
            "all_flash.r13dev.firmwaredevelopment.\n"
            "+++ Restore dfu found stage1.r13ap.DEVELOPMENT.dfu, stage1.r13ap.RELEASE.dfu.\n"
            "--- Restore dfu scrub dfu, stage1.r11ap.RELEASE.dfu, stage1.r13dev.DEVELOPMENT.dfu.\n"
            "+++ Restore.plist KernelCachesByTarget found r13 (Release).\n"
            "+++ Restore.plist KernelCachesByPlatform found xr2120x (Release).\n"
            "--- Restore.plist KernelCachesByPlatform scrub xr2120x (Development).\n"
            "+++ Restore.plist RamDisksByPlatform found 018-2120-001.dmg, xr2120x.\n"
            "--- Restore.plist RamDisksByPlatform scrub xr2100x.\n"
            "+++ Restore.plist SystemRestoreImagesByTarget found r13 (User).\n"
            "--- Restore.plist SystemRestoreImagesByTarget scrub r11, r13 (Internal), r13 (NonUI Internal).\n"
            "+++ Restore.plist SupportedProductTypes found Corvid2,1.\n"
            "--- Restore.plist SupportedProductTypes scrub Corvid1,1.\n"
            "+++ Restore.plist BasebandFirmware found BBX2_3.04.25.Release.bbfw.\n");
}

TEST_F(RestorePlistStepTest, FirmwareFoldersWithoutTypesOrEntries) {
  // Without firmware types a set that is not a debug set counts as found but
  // is not kept.
  ASSERT_EQ(run("ss", [](Value& item) { item.remove("workFirmwareTypesList"); }), 0);
  EXPECT_TRUE(logged("+++ Restore all_flash found all_flash.r13ap.factoryfa, all_flash.r13ap.production."));
  EXPECT_FALSE(lastKept(*e_).contains("Restore/Firmware/all_flash/all_flash.r13ap.production"));
  EXPECT_TRUE(lastKept(*e_).contains("Restore/Firmware/all_flash"));
}

TEST_F(RestorePlistStepTest, AnEmptyDfuFolderHasNoMatchAMissingOneNoDfu) {
  for (const char* dfu : {"stage1.r13ap.RELEASE.dfu", "stage1.r13ap.DEVELOPMENT.dfu", "stage1.r13dev.DEVELOPMENT.dfu",
                          "stage1.r11ap.RELEASE.dfu"})
    bundle_.omitPath(std::string("Restore/Firmware/dfu/") + dfu);
  bundle_.folders.push_back("Restore/Firmware/dfu");
  EXPECT_EQ(run(), 1);
  EXPECT_TRUE(logged("--- Restore dfu scrub dfu."));
  EXPECT_TRUE(logged("XXX ERROR no matching dfu found in bundle for r13ap, RELEASE, DEVELOPMENT."));
  EXPECT_EQ(e_->strippedManifestsList().count(), 0u);

  std::filesystem::remove_all(root() + "/Restore/Firmware/dfu");
  takeLog();
  Value item = entryFor(*engine(arrayOf({"r13"}), arrayOf({"ss"}), unpersonalized()), "stripRestoreWithoutHexloom:");
  EXPECT_EQ(engine()->stripRestoreWithoutHexloom(item), 1);
  EXPECT_TRUE(logged("XXX ERROR no dfu found in bundle."));
}

TEST_F(RestorePlistStepTest, MissingKernelCachesFail) {
  bundle_.omitPath("Restore/kernelcache.release.xr2120x");
  bundle_.omitPath("Restore/kernelcache.development.xr2120x");
  EXPECT_EQ(run(), 1);
  EXPECT_TRUE(logged("XXX ERROR no matching kernelcache found in bundle for r13 xr2120x."));

  // A kernel cache the plist names but the bundle lacks marks the step
  // failed and skips the later table; a ramdisk platform walked without
  // failure clears the mark again, one without ramdisks ends the walk failed.
  bundle_ = synth::legacyBundle(false);
  bundle_.restore.kernelCachesByTarget.front().file = "kernelcache.gone";
  std::filesystem::remove_all(root());
  takeLog();
  EXPECT_EQ(run(), 0);
  EXPECT_TRUE(logged("XXX ERROR: Restore.plist KernelCachesByTarget r13 Release missing \"kernelcache.gone\" from bundle."));
  EXPECT_FALSE(logged("+++ Restore.plist KernelCachesByPlatform found xr2120x (Release)."));
  EXPECT_TRUE(logged("+++ Restore.plist RamDisksByPlatform found 018-2120-001.dmg, xr2120x."));

  bundle_.editPlist("Restore/Restore.plist",
                    [](Value& plist) { plist.set("RamDisksByPlatform", dictOf({{"xr2120x", dictOf({})}})); });
  std::filesystem::remove_all(root());
  takeLog();
  EXPECT_EQ(run(), 1);
  EXPECT_TRUE(logged("+++ Restore.plist RamDisksByPlatform found xr2120x."));
  EXPECT_FALSE(logged("+++ Restore.plist SupportedProductTypes found Corvid2,1."));
}

TEST_F(RestorePlistStepTest, RamdisksLinkUnderTheirChipAndSupportRamdisksAreRefused) {
  // A platform the processor map does not know names the link itself.
  bundle_.addFile("Restore/018-2120-009.dmg");
  setRamDisks({{"xr2120x-b", "User", "018-2120-009.dmg"}});
  ASSERT_EQ(run(), 0);
  EXPECT_EQ(lastRecord(*e_).get("Restore/xr2120x-b-User-RAMDisk.dmg"), Value::makeData("018-2120-009.dmg"));

  // With a build manifest each ramdisk is looked up there.
  bundle_ = synth::legacyBundle(true);
  bundle_.identities.push_back({"r13ap", "Factory - Support", "", dictOf({{"RestoreRamDisk", "FactorySupportRamDisk"}}),
                                {{"RestoreRamDisk", "018-2120-002.dmg", ""}}});
  bundle_.addFile("Restore/018-2120-002.dmg");
  bundle_.addFile("Restore/018-2120-009.dmg");
  setRamDisks({{"xr2120x", "User", "018-2120-009.dmg"}, {"xr2120x", "Support", "018-2120-002.dmg"}});
  std::filesystem::remove_all(root());
  takeLog();
  EXPECT_EQ(run(), 1);
  EXPECT_TRUE(logged("!!! WARNING: Restore.plist ramdisk xr2120x \"018-2120-009.dmg\" has no corresponding entry in "
                     "BuildManifest.plist."));
  EXPECT_TRUE(logged("!!! ERROR: Restore.plist ramdisk xr2120x \"018-2120-002.dmg\" appears to be a "
                     "FactorySupportRamdisk (from BuildManifest.plist)."));
  EXPECT_EQ(e_->modifiedFilesList().count(), 0u);
}

TEST_F(RestorePlistStepTest, MissingRamdisksSystemImagesAndBasebandFail) {
  setRamDisks({{"xr2120x", "User", "018-2120-404.dmg"}});
  EXPECT_EQ(run(), 1);
  EXPECT_TRUE(logged("XXX ERROR: Restore.plist ramdisk C2 User \"018-2120-404.dmg\" missing from bundle."));

  bundle_ = synth::legacyBundle(false);
  bundle_.omitPath("Restore/038-1300-001.dmg");
  std::filesystem::remove_all(root());
  EXPECT_EQ(run(), 1);
  EXPECT_TRUE(logged("XXX ERROR: Restore.plist SystemRestoreImagesByTarget r13 system image, type \"User\" file "
                     "\"038-1300-001.dmg\" missing from bundle."));

  bundle_ = synth::legacyBundle(false);
  bundle_.omitPath("Restore/Firmware/BBX2_3.04.25.Release.bbfw");
  std::filesystem::remove_all(root());
  EXPECT_EQ(run(), 1);
  EXPECT_TRUE(logged("XXX ERROR found no BasebandFirmware files with prefixes BBX2."));
  EXPECT_EQ(e_->strippedManifestsList().count(), 0u);
}

}  // namespace
}  // namespace velmar::testing

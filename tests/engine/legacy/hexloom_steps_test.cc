// The personalized restore steps of the legacy engine: the build manifest
// decides what a device class and station keep; the restore property list
// is cut to the product; and the build manifest is cut on the other path.

#include <gtest/gtest.h>

#include "engine/legacy/stripper2.h"
#include "tests/engine/legacy/legacy_fixture.h"

namespace velmar::testing {
namespace {

class HexloomStepTest : public LegacyTest {
 protected:
  void SetUp() override {
    LegacyTest::SetUp();
    bundle_ = synth::legacyBundle(true);
  }
  // The entry of `selector` for r13 and `station`, after writing the bundle.
  Value entry(const char* selector, const char* station = "ss") {
    write(bundle_);
    e_ = engine(arrayOf({"r13"}), arrayOf({station}),
                dictOf({{"checkPersonalized", true}, {"checkUnpersonalized", true}}));
    return entryFor(*e_, selector);
  }

  BundleDescription bundle_;
  std::unique_ptr<Stripper2> e_;
};

TEST_F(HexloomStepTest, IdentitiesOfTheClassAndStationKeepWhatTheyNameWithConventionalLinks) {
  Value item = entry("stripRestoreUsingHexloom:");
  ASSERT_EQ(e_->stripRestoreUsingHexloom(item), 0);
  EXPECT_EQ(lastKept(*e_),
            (Paths{"Restore", "Restore/018-2120-001.dmg", "Restore/038-1300-001.dmg", "Restore/Firmware",
                   "Restore/Firmware/BBX2_3.04.25.Release.bbfw", "Restore/Firmware/all_flash",
                   "Restore/Firmware/all_flash/all_flash.r13ap.production",
                   "Restore/Firmware/all_flash/all_flash.r13ap.production/bootloader.r13ap.img",
                   "Restore/Firmware/all_flash/all_flash.r13ap.production/manifest", "Restore/Firmware/device_map.txt",
                   "Restore/Firmware/dfu", "Restore/Firmware/dfu/stage1.r13ap.RELEASE.dfu",
                   "Restore/Firmware/target_map.txt", "Restore/Restore.plist", "Restore/kernelcache.release.xr2120x"}));
  const Value record = lastRecord(*e_);
  EXPECT_EQ(record.get("Restore/R13-UserOS.dmg"), Value::makeData("038-1300-001.dmg"));
  EXPECT_EQ(record.get("Restore/R13-RestoreRamDisk.dmg"), Value::makeData("018-2120-001.dmg"));
  EXPECT_EQ(record.get("Restore/kernelcache.release.R13"), Value::makeData("kernelcache.release.xr2120x"));
  const Value manifest = record.get("Restore/BuildManifest.plist");
  ASSERT_EQ(manifest.get("BuildIdentities").count(), 1u);
  EXPECT_EQ(manifest.get("SupportedProductTypes"), arrayOf({"Corvid2,1"}));
  EXPECT_EQ(takeLog(),
            "+++ BuildManifest.plist BasebandFirmware found BBX2_3.04.25.Release.bbfw.\n"
            "+++ BuildManifest.plist BuildIdentities found r13ap (Factory - Shipping Settings).\n"
            "--- BuildManifest.plist BuildIdentities scrub r11ap, r13ap (Factory - Software Download), r13dev.\n"
            "+++ BuildManifest.plist SupportedProductTypes found Corvid2,1.\n"
            "--- BuildManifest.plist SupportedProductTypes scrub Corvid1,1.\n");
}

TEST_F(HexloomStepTest, MalformedItemsAreWarnedAboutAndStationsWithoutOSSkipIt) {
  Value contents = dictOf({{"SystemImage", "UserOS"}, {"RestoreRamDisk", "FactorySupportRamDisk"}});
  bundle_.identities.push_back({"r13ap", "Factory - Support", "", contents,
                                {{"OS", "038-1300-001.dmg", ""},
                                 {"Odd", "./Firmware/odd.img", ""},
                                 {"RestoreRamDisk", "018-2120-001.dmg", ""}}});
  bundle_.addFile("Restore/Firmware/platform_keys.txt");
  Value item = entry("stripRestoreUsingHexloom:", "support");
  ASSERT_EQ(e_->stripRestoreUsingHexloom(item), 0);
  EXPECT_TRUE(logged("--- skipping r13ap \"Factory - Support\" OS: 038-1300-001.dmg."));
  EXPECT_TRUE(logged("!!! WARNING: BuildManifest.plist BuildIdentity r13ap \"Factory - Support\" Odd malformed "
                     "manifest item ./Firmware/odd.img."));
  const Paths kept = lastKept(*e_);
  EXPECT_FALSE(kept.contains("Restore/038-1300-001.dmg"));
  EXPECT_TRUE(kept.contains("Restore/Firmware/platform_keys.txt"));
  EXPECT_EQ(lastRecord(*e_).dict().keys(),
            (std::vector<std::string>{"Restore/R13-FactorySupportRamDisk.dmg", "Restore/BuildManifest.plist"}));
}

TEST_F(HexloomStepTest, MissingFilesAndIdentitiesFailWithNothingAppended) {
  bundle_.omitPath("Restore/Firmware/dfu/stage1.r13ap.RELEASE.dfu");
  Value item = entry("stripRestoreUsingHexloom:");
  EXPECT_EQ(e_->stripRestoreUsingHexloom(item), 1);
  EXPECT_EQ(takeLog(),
            "+++ BuildManifest.plist BasebandFirmware found BBX2_3.04.25.Release.bbfw.\n"
            "XXX ERROR: BuildManifest.plist BuildIdentity r13ap \"Factory - Shipping Settings\" Stage1 missing "
            "\"Firmware/dfu/stage1.r13ap.RELEASE.dfu\" from bundle.\n");
  item.set("workVariant", "recovery");
  EXPECT_EQ(e_->stripRestoreUsingHexloom(item), 1);
  EXPECT_TRUE(logged("XXX ERROR: BuildManifest.plist BuildIdentity r13ap \"Recovery Customer Install\" not found."));
  EXPECT_EQ(e_->strippedManifestsList().count(), 0u);
  EXPECT_EQ(e_->modifiedFilesList().count(), 0u);

  std::filesystem::remove(root() + "/Restore/Firmware/BBX2_3.04.25.Release.bbfw");
  item = entryFor(*engine(arrayOf({"r13"}), arrayOf({"ss"}), personalized()), "stripRestoreUsingHexloom:");
  EXPECT_EQ(engine()->stripRestoreUsingHexloom(item), 1);
  EXPECT_EQ(takeLog(), "XXX ERROR found no BasebandFirmware files with prefixes BBX2.\n");
}

TEST_F(HexloomStepTest, RestorePlistIsCutToTheProduct) {
  Value item = entry("stripRestorePlistUsingHexloom:");
  item.set("workKernelCachesList", arrayOf({"Release", "Debug"}));
  ASSERT_EQ(e_->stripRestorePlistUsingHexloom(item), 0);
  EXPECT_EQ(e_->strippedManifestsList().count(), 0u);
  const Value plist = lastRecord(*e_).get("Restore/Restore.plist");
  EXPECT_EQ(plist.get("KernelCachesByTarget"), dictOf({{"r13", dictOf({{"Release", "kernelcache.release.xr2120x"}})}}));
  EXPECT_EQ(plist.get("KernelCachesByPlatform"),
            dictOf({{"xr2120x", dictOf({{"Release", "kernelcache.release.xr2120x"}})}}));
  EXPECT_EQ(plist.get("RamDisksByPlatform").dict().keys(), std::vector<std::string>{"xr2120x"});
  EXPECT_EQ(plist.get("SystemRestoreImagesByTarget"), dictOf({{"r13", dictOf({{"User", "038-1300-001.dmg"}})}}));
  EXPECT_EQ(plist.get("SupportedProductTypes"), arrayOf({"Corvid2,1"}));
  // The kernel-cache lines follow each serving key, so keys scrubbed after
  // the last one (r11, xr2100x) go unreported though they are cut.
  EXPECT_EQ(takeLog(),
            "+++ Restore.plist found KernelCachesByTarget r13 (Release).\n"
            "!!! WARNING: Restore.plist KernelCachesByTarget r13 missing reference to kernelcache Debug.\n"
            "+++ Restore.plist found KernelCachesByPlatform xr2120x (Release).\n"
            "--- Restore.plist scrub KernelCachesByPlatform xr2120x (Development).\n"
            "!!! WARNING: Restore.plist KernelCachesByPlatform xr2120x missing reference to kernelcache Debug.\n"
            "+++ Restore.plist found RamDisksByPlatform xr2120x.\n"
            "--- Restore.plist scrub RamDisksByPlatform xr2100x.\n"
            "+++ Restore.plist found SystemRestoreImagesByTarget r13 (User).\n"
            "--- Restore.plist scrub SystemRestoreImagesByTarget r11, r13 (Internal), r13 (NonUI Internal).\n"
            "+++ Restore.plist found SupportedProductTypes Corvid2,1.\n"
            "--- Restore.plist scrub SupportedProductTypes Corvid1,1.\n");

  // Without kernel-cache kinds every kind of a serving key stays.
  item.remove("workKernelCachesList");
  e_->stripRestorePlistUsingHexloom(item);
  EXPECT_EQ(lastRecord(*e_).get("Restore/Restore.plist").get("KernelCachesByPlatform").get("xr2120x").count(), 2u);
}

TEST_F(HexloomStepTest, BuildManifestWithoutHexloomOnlyWarns) {
  bundle_.omitPath("Restore/038-1300-001.dmg");
  Value item = entry("stripBuildManifestWithoutHexloom:");
  ASSERT_EQ(e_->stripBuildManifestWithoutHexloom(item), 0);
  EXPECT_EQ(takeLog(),
            "!!! WARNING: BuildManifest.plist BuildIdentity r13ap \"Factory - Shipping Settings\" OS missing "
            "\"038-1300-001.dmg\" from bundle.\n"
            "+++ BuildManifest.plist BuildIdentities found r13ap (Factory - Shipping Settings).\n"
            "--- BuildManifest.plist BuildIdentities scrub r11ap, r13ap (Factory - Software Download), r13dev.\n"
            "+++ BuildManifest.plist SupportedProductTypes found Corvid2,1.\n"
            "--- BuildManifest.plist SupportedProductTypes scrub Corvid1,1.\n");
  EXPECT_EQ(lastRecord(*e_).get("Restore/BuildManifest.plist").get("BuildIdentities").count(), 1u);
  EXPECT_EQ(e_->strippedManifestsList().count(), 0u);

  item.set("workVariant", "recovery");
  EXPECT_EQ(e_->stripBuildManifestWithoutHexloom(item), 0);
  EXPECT_TRUE(logged("!!! WARNING: BuildManifest.plist BuildIdentity r13ap \"Recovery Customer Install\" not found."));
  std::filesystem::remove(root() + "/Restore/BuildManifest.plist");
  EXPECT_EQ(e_->stripBuildManifestWithoutHexloom(item), 0);
  EXPECT_TRUE(logged("!!! WARNING: BuildManifest.plist cannot be read."));
  EXPECT_EQ(e_->modifiedFilesList().count(), 1u);
}

}  // namespace
}  // namespace velmar::testing

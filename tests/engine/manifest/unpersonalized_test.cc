// The unpersonalized-install step on the sample bundle, whose folders it
// searches by name.

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/engine/manifest/engine_fixture.h"

namespace velmar::testing {
namespace {

class UnpersonalizedTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    BundleDescription d = synth::sampleBundle();
    // An FPGA build of r13's processor not naming r13 is another product's.
    d.addFile("Restore/kernelcache.release.xr2120x.fpga");
    d.addFile("Restore/KernelCache.Release.r13.xr2120x.fpga");
    d.addFile("Restore/Firmware/all_flash/all_flash.r13ap.DEBUG/manifest");
    write(d);
  }
  // An engine for r13 at ss (kernel caches Release, firmware production, DFU
  // RELEASE and DEVELOPMENT) and its unpersonalized entry.
  std::unique_ptr<Stripper3> make(Value& entry) {
    auto e = engine(arrayOf({"r13"}), arrayOf({"ss"}), dictOf({{"checkUnpersonalized", true}}));
    entry = entryFor(*e, "updateFilelistForUnpersonalizedInstall:");
    return e;
  }
  // The last line logged by a failing step, its entry changed by `edit`.
  std::string failure(void (*edit)(Value&) = [](Value&) {}) {
    Value entry;
    auto e = make(entry);
    edit(entry);
    EXPECT_EQ(e->updateFilelistForUnpersonalizedInstall(entry), 1);
    std::string log = takeLog();
    size_t end = log.rfind('\n', log.size() - 2);
    return end == std::string::npos ? log : log.substr(end + 1);
  }
};

TEST_F(UnpersonalizedTest, KeepsKernelCachesFlashDfuAndBasebandOfTheDeviceClasses) {
  Value entry;
  auto e = make(entry);
  ASSERT_EQ(e->updateFilelistForUnpersonalizedInstall(entry), 0) << logText();
  const std::string fa = "Restore/Firmware/all_flash/all_flash.r13ap.production";
  EXPECT_EQ(kept(*e),
            (Paths{"Restore", "Restore/kernelcache.release.xr2120x",
                   "Restore/KernelCache.Release.r13.xr2120x.fpga", "Restore/Firmware",
                   "Restore/Firmware/all_flash", fa, fa + "/.DS_Store", fa + "/bootloader.r13ap.img",
                   fa + "/manifest", "Restore/Firmware/dfu", "Restore/Firmware/dfu/stage1.r13ap.RELEASE.dfu",
                   "Restore/Firmware/dfu/stage1.r13ap.DEVELOPMENT.dfu",
                   "Restore/Firmware/BBX2_3.04.25.Release.bbfw"}));
  EXPECT_EQ(e->kernelCachesSet(),
            setOf({"kernelcache.release.xr2120x", "KernelCache.Release.r13.xr2120x.fpga"}));
  EXPECT_EQ(
      logText(),
      "+++ Restore kernelcache found KernelCache.Release.r13.xr2120x.fpga, kernelcache.release.xr2120x.\n"
      "+++ Restore all_flash found all_flash.r13ap.production.\n"
      "+++ Restore dfu found stage1.r13ap.DEVELOPMENT.dfu, stage1.r13ap.RELEASE.dfu.\n"
      "+++ Restore.plist BasebandFirmware found BBX2_3.04.25.Release.bbfw.\n");
  // Without firmware types every flash folder of the classes but debug builds is kept.
  entry.remove("workFirmwareTypesList");
  ASSERT_EQ(e->updateFilelistForUnpersonalizedInstall(entry), 0);
  EXPECT_TRUE(logged("+++ Restore all_flash found all_flash.r13ap.factoryfa, all_flash.r13ap.production."));
}

TEST_F(UnpersonalizedTest, EachMissingKindFailsWithItsMessage) {
  EXPECT_EQ(failure([](Value& e) { e.set("workKernelCachesList", arrayOf({"Bogus"})); }),
            "XXX ERROR no matching kernelcache found in bundle for r13 xr2120x.\n");
  EXPECT_EQ(failure([](Value& e) { e.set("workFirmwareTypesList", arrayOf({})); }),
            "XXX ERROR no matching all_flash found in bundle for r13, .\n");
  EXPECT_EQ(failure([](Value& e) { e.set("workDFUTypesList", arrayOf({"ZZ", "FACTORY"})); }),
            "XXX ERROR no matching dfu found in bundle for r13, FACTORY, ZZ.\n");
  std::filesystem::remove(root() + "/Restore/Firmware/BBX2_3.04.25.Release.bbfw");
  EXPECT_EQ(failure(), "XXX ERROR found no BasebandFirmware files with prefixes BBX2.\n");
  // A product without baseband prefixes needs no baseband file.
  Stripper3::tables().knownProducts.dictMut().find("r13")->remove("BasebandFirmwarePrefix");
  Value entry;
  auto e = make(entry);
  EXPECT_EQ(e->updateFilelistForUnpersonalizedInstall(entry), 0) << logText();
  std::filesystem::remove_all(root() + "/Restore/Firmware/dfu");
  EXPECT_EQ(failure(), "XXX ERROR no dfu found in bundle.\n");
  std::filesystem::remove_all(root() + "/Restore/Firmware/all_flash");
  EXPECT_EQ(failure(), "XXX ERROR no all_flash found in bundle.\n");
}

}  // namespace
}  // namespace velmar::testing

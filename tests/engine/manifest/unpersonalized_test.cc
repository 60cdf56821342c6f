// The unpersonalized-install step, driven on a real engine over a small
// bundle whose folders it searches by name.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>

#include "engine/builtin_tables.h"
#include "engine/log_object.h"
#include "engine/manifest/stripper3.h"
#include "engine/plist_io.h"

namespace velmar {
namespace {

namespace fs = std::filesystem;
using Paths = std::set<std::string>;

Value dict(std::initializer_list<std::pair<const char*, Value>> items) {
  Value d = Value::makeDict();
  for (const auto& [key, value] : items) d.set(key, value);
  return d;
}

class UnpersonalizedTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Stripper3::tables().knownProducts = builtInKnownProducts();
    char pattern[] = "/tmp/velmar-unpersonalized-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    Value ss = dict({{"Info", dict({{"DeviceClass", "r13ap"}, {"Variant", "Factory - Shipping Settings"}})},
                     {"Manifest", Value::makeDict()}});
    writeFile("Restore/BuildManifest.plist", toXml(dict({{"BuildIdentities", Value::makeArray({ss})}})));
    writeFile("Restore/Firmware/Device_map.plist",
              toXml(dict({{"r13ap", dict({{"Platform", "xr2120x"}, {"ProductType", "Corvid2,1"}})}})));
    // An FPGA build of r13's processor that does not name r13 is another
    // product's; "release.r13.kernelcache" is no kernel cache by name.
    for (const char* file :
         {"Restore/kernelcache.release.xr2120x", "Restore/kernelcache.release.xr2120x.fpga",
          "Restore/KernelCache.Release.r13.xr2120x.fpga", "Restore/kernelcache.development.r13",
          "Restore/kernelcache.release.r31", "Restore/release.r13.kernelcache",
          "Restore/Firmware/all_flash/all_flash.r13ap.production/manifest",
          "Restore/Firmware/all_flash/all_flash.r13ap.production/sub/LLB.img3",
          "Restore/Firmware/all_flash/all_flash.r13ap.factoryfa/manifest",
          "Restore/Firmware/all_flash/all_flash.r13ap.DEBUG/manifest",
          "Restore/Firmware/all_flash/all_flash.r31ap.production/manifest",
          "Restore/Firmware/dfu/iBSS.r13ap.RELEASE.dfu", "Restore/Firmware/dfu/iBEC.r13ap.DEVELOPMENT.dfu",
          "Restore/Firmware/dfu/iBSS.r31ap.RELEASE.dfu", "Restore/Firmware/BBX2_1.0.bbfw"})
      writeFile(file, "x");
    LogObject::sharedLogger().setHistoricalLog("");
  }

  void TearDown() override {
    std::error_code ec;
    fs::remove_all(root_, ec);
  }

  void writeFile(const std::string& relative, const std::string& contents) {
    fs::create_directories((root_ / relative).parent_path());
    std::ofstream(root_ / relative) << contents;
  }

  // An engine for r13 and ss, and the unpersonalized entry of its work list
  // (kernel caches Release, firmware production, DFU RELEASE and DEVELOPMENT).
  std::unique_ptr<Stripper3> makeEngine(Value& entry) {
    auto engine = Stripper3::stripperForPath(root_.string(), Value::makeArray({"r13"}),
                                             Value::makeArray({"ss"}), dict({{"checkUnpersonalized", true}}));
    EXPECT_EQ(engine->preanalyzeRequest(), Status(0)) << log();
    entry = engine->workList().arr().at(1);
    EXPECT_EQ(entry.get("workSelector").str(), "updateFilelistForUnpersonalizedInstall:");
    LogObject::sharedLogger().setHistoricalLog("");
    return engine;
  }

  static Paths kept(Stripper3& engine) {
    std::vector<std::string> all = engine.copiedFilelist().strings();
    return Paths(all.begin(), all.end());
  }

  static bool logged(const std::string& line) { return log().find(line + "\n") != std::string::npos; }
  static const std::string& log() { return LogObject::sharedLogger().historicalLog(); }

  fs::path root_;
};

TEST_F(UnpersonalizedTest, KeepsMatchingKernelCachesFlashDfuAndBaseband) {
  Value entry;
  auto engine = makeEngine(entry);
  ASSERT_EQ(engine->updateFilelistForUnpersonalizedInstall(entry), 0) << log();

  const std::string fa = "Restore/Firmware/all_flash/all_flash.r13ap.production";
  EXPECT_EQ(kept(*engine),
            (Paths{"Restore", "Restore/kernelcache.release.xr2120x",
                   "Restore/KernelCache.Release.r13.xr2120x.fpga", "Restore/Firmware",
                   "Restore/Firmware/all_flash", fa, fa + "/manifest", fa + "/sub",
                   fa + "/sub/LLB.img3", "Restore/Firmware/dfu", "Restore/Firmware/dfu/iBSS.r13ap.RELEASE.dfu",
                   "Restore/Firmware/dfu/iBEC.r13ap.DEVELOPMENT.dfu", "Restore/Firmware/BBX2_1.0.bbfw"}));
  EXPECT_EQ(engine->kernelCachesSet(),
            Value::makeSet({"kernelcache.release.xr2120x", "KernelCache.Release.r13.xr2120x.fpga"}));
  EXPECT_EQ(log(),
            "+++ Restore kernelcache found KernelCache.Release.r13.xr2120x.fpga, "
            "kernelcache.release.xr2120x.\n"
            "+++ Restore all_flash found all_flash.r13ap.production.\n"
            "+++ Restore dfu found iBEC.r13ap.DEVELOPMENT.dfu, iBSS.r13ap.RELEASE.dfu.\n"
            "+++ Restore.plist BasebandFirmware found BBX2_1.0.bbfw.\n");
}

TEST_F(UnpersonalizedTest, WithoutFirmwareTypesEveryFlashFolderButDebugIsKept) {
  Value entry;
  auto engine = makeEngine(entry);
  entry.remove("workFirmwareTypesList");
  ASSERT_EQ(engine->updateFilelistForUnpersonalizedInstall(entry), 0) << log();
  EXPECT_TRUE(logged("+++ Restore all_flash found all_flash.r13ap.factoryfa, all_flash.r13ap.production."))
      << log();
}

TEST_F(UnpersonalizedTest, EmptyFirmwareTypesMatchNothingAndFailWithoutKeeping) {
  Value entry;
  auto engine = makeEngine(entry);
  entry.set("workFirmwareTypesList", Value::makeArray());
  EXPECT_EQ(engine->updateFilelistForUnpersonalizedInstall(entry), 1);
  EXPECT_TRUE(logged("XXX ERROR no matching all_flash found in bundle for r13, .")) << log();
  EXPECT_EQ(engine->copiedFilelist().count(), 0u);
  // Kernel caches found before the failure stay chosen.
  EXPECT_EQ(engine->kernelCachesSet().count(), 2u);
}

TEST_F(UnpersonalizedTest, EachMissingKindFailsWithItsMessage) {
  Value entry;
  {
    auto engine = makeEngine(entry);
    entry.set("workKernelCachesList", Value::makeArray({"Bogus"}));
    EXPECT_EQ(engine->updateFilelistForUnpersonalizedInstall(entry), 1);
    EXPECT_EQ(log(), "XXX ERROR no matching kernelcache found in bundle for r13 xr2120x.\n");
  }
  {
    auto engine = makeEngine(entry);
    entry.set("workDFUTypesList", Value::makeArray({"ZZ", "FACTORY"}));
    EXPECT_EQ(engine->updateFilelistForUnpersonalizedInstall(entry), 1);
    EXPECT_TRUE(logged("XXX ERROR no matching dfu found in bundle for r13, FACTORY, ZZ.")) << log();
  }
  fs::remove(root_ / "Restore/Firmware/BBX2_1.0.bbfw");
  {
    auto engine = makeEngine(entry);
    EXPECT_EQ(engine->updateFilelistForUnpersonalizedInstall(entry), 1);
    EXPECT_TRUE(logged("XXX ERROR found no BasebandFirmware files with prefixes BBX2.")) << log();
  }
  fs::remove_all(root_ / "Restore/Firmware/dfu");
  {
    auto engine = makeEngine(entry);
    EXPECT_EQ(engine->updateFilelistForUnpersonalizedInstall(entry), 1);
    EXPECT_TRUE(logged("XXX ERROR no dfu found in bundle.")) << log();
  }
  fs::remove_all(root_ / "Restore/Firmware/all_flash");
  {
    auto engine = makeEngine(entry);
    EXPECT_EQ(engine->updateFilelistForUnpersonalizedInstall(entry), 1);
    EXPECT_TRUE(logged("XXX ERROR no all_flash found in bundle.")) << log();
  }
}

TEST_F(UnpersonalizedTest, ProductWithoutBasebandPrefixesNeedsNoBasebandFile) {
  fs::remove(root_ / "Restore/Firmware/BBX2_1.0.bbfw");
  Value entry;
  auto engine = makeEngine(entry);
  Stripper3::tables().knownProducts.dictMut().find("r13")->remove("BasebandFirmwarePrefix");
  EXPECT_EQ(engine->updateFilelistForUnpersonalizedInstall(entry), 0) << log();
  EXPECT_EQ(log().find("BasebandFirmware"), std::string::npos) << log();
}

}  // namespace
}  // namespace velmar

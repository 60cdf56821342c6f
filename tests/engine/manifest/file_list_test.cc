// The per-station file-list step, driven on a real engine over a small
// bundle, with entries taken from the engine's own work list.

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

Value item(const char* path) { return dict({{"Info", dict({{"Path", path}})}}); }

Value identity(const char* deviceClass, const char* variant, Value manifest, Value contents = Value(),
               const char* builtOn = nullptr) {
  Value info = dict({{"DeviceClass", deviceClass}, {"Variant", variant}});
  if (!contents.isNull()) info.set("VariantContents", contents);
  if (builtOn) info.set("MacOSVariant", builtOn);
  return dict({{"Info", info}, {"Manifest", manifest}});
}

// r13 (processor xr2120x, chip C2) with identities for ss, swdl (built on a
// base variant), tendrix-support, dfu (built on a variant the manifest
// lacks), and recovery on the development class only.
Value buildManifest() {
  Value ss = identity(
      "r13ap", "Factory - Shipping Settings",
      dict({{"OS", item("system-r13.dmg")},
            {"RestoreRamDisk", item("c2update.dmg")},
            {"RestoreKernelCache", item("kernelcache.restore.r13")},
            {"KernelCache", item("kernelcache.release.r13")},
            {"LLB", item("Firmware/all_flash/all_flash.r13ap.production/LLB.r13.img3")},
            {"Ticket", dict({{"Digest", Value::makeData("\x01\x02")}})}}),
      dict({{"SystemImage", "User"},
            {"RestoreRamDisk", "Update"},
            {"RestoreKernelCache", "Development"},
            {"InstalledKernelCache", "Release"}}));
  return dict({{"BuildIdentities",
                Value::makeArray({
                    ss,
                    identity("r13ap", "Factory - Base", dict({{"iBSS", item("Firmware/dfu/iBSS.r13.dfu")}})),
                    identity("r13ap", "Factory - Software Download",
                             dict({{"RestoreRamDisk", item("./swdl-ramdisk.dmg")}}), Value(),
                             "Factory - Base"),
                    identity("r13ap", "Tendrix - Support",
                             dict({{"OS", item("tendrix-os.dmg")},
                                   {"RestoreRamDisk", item("tendrix-rd.dmg")}}),
                             dict({{"RestoreRamDisk", "Support"}})),
                    identity("r13ap", "Factory - DFU", Value::makeDict(), Value(), "Factory - Ghost"),
                    identity("r13dev", "Recovery Customer Install",
                             dict({{"KernelCache", item("kernelcache.development.r13")}})),
                })},
               {"SupportedProductTypes", Value::makeArray({"Corvid2,1"})}});
}

class FileListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Stripper3::tables().knownProducts = builtInKnownProducts();
    char pattern[] = "/tmp/velmar-file-list-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    fs::create_directories(root_ / "Restore/Firmware");
    fs::create_directories(root_ / "Restore/Diags");
    writeFile("Restore/BuildManifest.plist", toXml(buildManifest()));
    Value r13 = dict({{"Platform", "xr2120x"}, {"ProductType", "Corvid2,1"}});
    writeFile("Restore/Firmware/Device_map.plist", toXml(dict({{"r13ap", r13}, {"r13dev", r13}})));
    for (const char* file : {"Restore/Firmware/BBX2_1.2.3.bbfw", "Restore/Firmware/xBBX2.bin",
                             "Restore/Diags/r13-diag.dmg", "Restore/Diags/R13-extra.img",
                             "Restore/Diags/r31-diag.dmg"})
      writeFile(file, "x");
    LogObject::sharedLogger().setHistoricalLog("");
  }

  void TearDown() override {
    std::error_code ec;
    fs::remove_all(root_, ec);
  }

  void writeFile(const std::string& relative, const std::string& contents) {
    std::ofstream(root_ / relative) << contents;
  }

  // An engine for r13 and `station`, and the file-list entry its
  // pre-analysis made.
  std::unique_ptr<Stripper3> makeEngine(const char* station, Value& entry) {
    auto engine = Stripper3::stripperForPath(root_.string(), Value::makeArray({"r13"}),
                                             Value::makeArray({station}), Value::makeDict());
    EXPECT_EQ(engine->preanalyzeRequest(), Status(0)) << log();
    entry = engine->workList().arr().at(0);
    EXPECT_EQ(entry.get("workSelector").str(), "buildFilelistFromBuildManifest:");
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

TEST_F(FileListTest, KeepsNamedFilesWithAncestorsAndLinksRenamedImages) {
  Value entry;
  auto engine = makeEngine("ss", entry);
  ASSERT_EQ(engine->buildFilelistFromBuildManifest(entry), 0);
  // Running the station again changes nothing.
  ASSERT_EQ(engine->buildFilelistFromBuildManifest(entry), 0);

  // The digest-only item names no file; "xBBX2.bin" does not begin with the
  // prefix; r31's diagnostics are not r13's.
  const std::string fa = "Restore/Firmware/all_flash/all_flash.r13ap.production";
  EXPECT_EQ(kept(*engine),
            (Paths{"Restore", "Restore/system-r13.dmg", "Restore/c2update.dmg",
                   "Restore/kernelcache.restore.r13", "Restore/kernelcache.release.r13", "Restore/Firmware",
                   "Restore/Firmware/all_flash", fa, fa + "/LLB.r13.img3", fa + "/manifest",
                   "Restore/Firmware/BBX2_1.2.3.bbfw", "Restore/Diags", "Restore/Diags/r13-diag.dmg",
                   "Restore/Diags/R13-extra.img"}));
  EXPECT_EQ(engine->restoreImagesSet(), Value::makeSet({"system-r13.dmg"}));
  EXPECT_EQ(engine->kernelCachesSet(),
            Value::makeSet({"kernelcache.restore.r13", "kernelcache.release.r13"}));
  EXPECT_EQ(engine->ramDisksSet(), Value::makeSet({"c2update.dmg"}));
  EXPECT_TRUE(logged("+++ BuildManifest.plist BasebandFirmware found BBX2_1.2.3.bbfw.")) << log();
  EXPECT_EQ(engine->strippedBuildIdentities().get("r13ap").dict().keys(),
            std::vector<std::string>{"Factory - Shipping Settings"});
  EXPECT_EQ(engine->strippedBuildIdentities().get("r13ap").get("Factory - Shipping Settings").count(), 1u);
  // The ramdisk's conventional name "C2Update.dmg" differs only in case, and
  // the installed kernel cache already has its conventional name.
  EXPECT_EQ(engine->modifiedFilelist(),
            dict({{"Restore/R13User.dmg", Value::makeData("system-r13.dmg")},
                  {"Restore/kernelcache.development.r13", Value::makeData("kernelcache.restore.r13")}}));
}

TEST_F(FileListTest, StationWithoutOsImageSkipsOsAndDiagsButLinksRamdiskByChipName) {
  Value entry;
  auto engine = makeEngine("tendrix-support", entry);
  ASSERT_EQ(engine->buildFilelistFromBuildManifest(entry), 0);
  EXPECT_TRUE(logged("--- skipping r13ap \"tendrix-support\" OS: tendrix-os.dmg.")) << log();
  EXPECT_EQ(engine->restoreImagesSet().count(), 0u);
  EXPECT_EQ(kept(*engine), (Paths{"Restore", "Restore/tendrix-rd.dmg", "Restore/Firmware",
                                  "Restore/Firmware/BBX2_1.2.3.bbfw"}));
  EXPECT_EQ(engine->modifiedFilelist(), dict({{"Restore/C2Support.dmg", Value::makeData("tendrix-rd.dmg")}}));
}

TEST_F(FileListTest, ReferenceVariantsComeFirstAndMalformedItemsAreNotKept) {
  Value entry;
  auto engine = makeEngine("swdl", entry);
  ASSERT_EQ(engine->buildFilelistFromBuildManifest(entry), 0);
  EXPECT_EQ(engine->strippedBuildIdentities().get("r13ap").dict().keys(),
            (std::vector<std::string>{"Factory - Base", "Factory - Software Download"}));
  EXPECT_TRUE(logged("!!! WARNING: BuildManifest.plist BuildIdentity r13ap \"swdl\" RestoreRamDisk "
                     "malformed manifest item ./swdl-ramdisk.dmg."))
      << log();
  // Not kept, but still counted as a chosen ramdisk.
  EXPECT_EQ(engine->ramDisksSet(), Value::makeSet({"./swdl-ramdisk.dmg"}));
  Paths paths = kept(*engine);
  EXPECT_TRUE(paths.count("Restore/Firmware/dfu/iBSS.r13.dfu"));
  for (const std::string& path : paths) EXPECT_EQ(path.find("swdl-ramdisk"), std::string::npos) << path;
  EXPECT_EQ(engine->modifiedFilelist().count(), 0u);
}

TEST_F(FileListTest, MissingIdentityIsLoggedForEachDeviceClassAndFailsWithoutResults) {
  Value entry;
  auto engine = makeEngine("ss", entry);
  entry.set("workVariant", "recovery");
  entry.set("workDeviceClasses", Value::makeArray({"r13ap", "r13dev"}));
  EXPECT_EQ(engine->buildFilelistFromBuildManifest(entry), 1);
  EXPECT_TRUE(logged("XXX ERROR: BuildIdentity r13ap (Recovery Customer Install) not found.")) << log();
  // The second device class was still looked at, and its identity recorded.
  EXPECT_EQ(engine->strippedBuildIdentities().get("r13dev").get("Recovery Customer Install").count(), 1u);
  EXPECT_EQ(engine->copiedFilelist().count(), 0u);
  EXPECT_EQ(engine->modifiedFilelist().count(), 0u);
  EXPECT_EQ(engine->kernelCachesSet().count(), 0u);
}

TEST_F(FileListTest, MissingReferenceVariantSkipsTheStationsOwnVariant) {
  Value entry;
  auto engine = makeEngine("dfu", entry);
  EXPECT_EQ(engine->buildFilelistFromBuildManifest(entry), 1);
  EXPECT_EQ(log(), "XXX ERROR: BuildIdentity r13ap (Factory - Ghost) not found.\n");
  EXPECT_EQ(engine->strippedBuildIdentities(), Value::makeDict());
}

TEST_F(FileListTest, TemplateStationTakesItsVariantsFromTheOptions) {
  auto engine = Stripper3::stripperForPath(
      root_.string(), Value::makeArray({"r13"}), Value::makeArray({"ss-tmpl"}),
      dict({{"ss-tmpl", Value::makeArray({"Factory - Base", "Tendrix - Support"})}}));
  ASSERT_EQ(engine->preanalyzeRequest(), Status(0)) << log();
  Value entry = engine->workList().arr().at(0);
  ASSERT_EQ(engine->buildFilelistFromBuildManifest(entry), 0);
  EXPECT_EQ(engine->strippedBuildIdentities().get("r13ap").dict().keys(),
            (std::vector<std::string>{"Factory - Base", "Tendrix - Support"}));
  // The template installs an OS image, so the support identity's OS stays.
  EXPECT_TRUE(kept(*engine).count("Restore/tendrix-os.dmg"));
}

TEST_F(FileListTest, BasebandFilesAreNeededOnlyWhenUnpersonalizedOrListed) {
  Value entry;
  auto engine = makeEngine("ss", entry);
  // Looked up after creation: analysis narrows the table in place.
  Value& r13 = *Stripper3::tables().knownProducts.dictMut().find("r13");
  r13.set("BasebandFirmwarePrefix", Value::makeArray({"BBX2Q", "BBX0"}));
  ASSERT_EQ(engine->buildFilelistFromBuildManifest(entry), 0);
  EXPECT_TRUE(logged("+++ no BasebandFirmware files for BBX2, strip result may not work")) << log();

  r13.set("BasebandFirmwarePrefix", Value::makeArray({"BBX0", "BBX2Q"}));
  ASSERT_EQ(engine->buildFilelistFromBuildManifest(entry), 0);
  EXPECT_TRUE(logged("!!! WRNING: found no BasebandFirmware files with prefixes BBX0, BBX2Q.")) << log();

  // A personalized baseband comes only with an identity that lists it.
  r13.set("BasebandFirmwarePrefix", Value::makeArray({"BBX2"}));
  r13.set("BasebandIsPersonalized", true);
  LogObject::sharedLogger().setHistoricalLog("");
  ASSERT_EQ(engine->buildFilelistFromBuildManifest(entry), 0);
  EXPECT_FALSE(kept(*engine).count("Restore/Firmware/BBX2_1.2.3.bbfw"));
  EXPECT_EQ(log().find("BasebandFirmware"), std::string::npos) << log();
}

}  // namespace
}  // namespace velmar

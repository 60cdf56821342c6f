// The closing Restore.plist rewrite, driven on a real engine over a small
// bundle whose image sets are filled the way the file-list steps fill them.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "engine/builtin_tables.h"
#include "engine/log_object.h"
#include "engine/manifest/stripper3.h"
#include "engine/plist_io.h"

namespace velmar {
namespace {

namespace fs = std::filesystem;

const char kWarning[] = "!!! WARNING: Restore.plist missing reference to kernelcaches";

Value dict(std::initializer_list<std::pair<const char*, Value>> items) {
  Value d = Value::makeDict();
  for (const auto& [key, value] : items) d.set(key, value);
  return d;
}

Value identity(const char* deviceClass, const char* variant) {
  return dict({{"Info", dict({{"DeviceClass", deviceClass}, {"Variant", variant}})},
               {"Manifest", Value::makeDict()}});
}

// A Restore.plist for r13 (xr2120x) and r31 (xr2130x), with a kernel cache
// filed under the "wrong" table each way and one outer key in both tables.
Value fullRestorePlist() {
  return dict({
      {"ProductVersion", "9.1"},
      {"DeviceMap", Value::makeArray({dict({{"BoardConfig", "r13ap"}}), dict({{"BoardConfig", "r31ap"}})})},
      {"KernelCachesByPlatform",
       dict({{"xr2120x", dict({{"Release", "kernelcache.release.r13"},
                               {"Development", "kernelcache.development.r13"}})},
             {"r13", dict({{"Release", "kernelcache.platform.r13"}})},
             {"xr2130x", dict({{"Release", "kernelcache.release.r31"}})}})},
      {"KernelCachesByTarget",
       dict({{"r13", dict({{"Release", "kernelcache.target.r13"}})},
             {"xr2122x", dict({{"Release", "kernelcache.release.r23"}})},
             {"r31", dict({{"Release", "kernelcache.target.r31"}})}})},
      {"RamDisksByPlatform",
       dict({{"xr2120x", dict({{"User", "ramdisk-r13.dmg"}, {"Update", "update-r13.dmg"}})},
             {"xr2130x", dict({{"User", "ramdisk-r31.dmg"}})}})},
      {"SystemRestoreImagesByTarget",
       dict({{"r13", dict({{"User", "system-r13.dmg"}, {"Internal", "internal.dmg"}})},
             {"r31", dict({{"User", "system-r31.dmg"}})}})},
      {"SupportedProductTypes", Value::makeArray({"Tabula1,1", "corvid2,1", "Corvid2,1", "alpha1,1", "Bogus9,9"})},
      {"SystemPartitionPadding", dict({{"r13", 160}, {"r31", 320}})},
      {"MinimumSystemPartition", dict({{"system-r13.dmg", 2048}, {"system-r31.dmg", 4096}})},
  });
}

class RestorePlistTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Stripper3::tables().knownProducts = builtInKnownProducts();
    char pattern[] = "/tmp/velmar-restore-plist-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    fs::create_directories(root_ / "Restore/Firmware");
    writePlist("Restore/BuildManifest.plist",
               dict({{"BuildIdentities", Value::makeArray({identity("r13ap", "Factory - Shipping Settings"),
                                                           identity("r31ap", "Factory - Shipping Settings")})},
                     {"SupportedProductTypes", Value::makeArray({"Corvid2,1", "Tabula1,1"})}}));
    writePlist("Restore/Firmware/Device_map.plist",
               dict({{"r13ap", dict({{"Platform", "xr2120x"}, {"ProductType", "Corvid2,1"}})},
                     {"r31ap", dict({{"Platform", "xr2130x"}, {"ProductType", "Tabula1,1"}})}}));
    writePlist("Restore/Restore.plist", fullRestorePlist());
    LogObject::sharedLogger().setHistoricalLog("");
  }

  void TearDown() override {
    std::error_code ec;
    fs::remove_all(root_, ec);
  }

  void writePlist(const std::string& relative, const Value& contents) {
    std::ofstream(root_ / relative) << toXml(contents);
  }

  // An engine for `products` with the file-list steps' image sets.
  std::unique_ptr<Stripper3> makeEngine(Value products) {
    auto engine = Stripper3::stripperForPath(root_.string(), products, Value::makeArray({"ss"}),
                                             Value::makeDict());
    engine->restoreImagesSet() = Value::makeSet({"system-r13.dmg"});
    engine->ramDisksSet() = Value::makeSet({"ramdisk-r13.dmg"});
    engine->kernelCachesSet() = Value::makeSet({"kernelcache.release.r13", "kernelcache.target.r13"});
    EXPECT_TRUE(engine->restorePlist().load());
    return engine;
  }

  // A closing entry as pre-analysis builds it.
  static Value closingEntry(Value products, Value models, Value processors) {
    return dict({{"workAllProducts", products},
                 {"workAllDeviceClasses", Value::makeSet()},
                 {"workAllModels", models},
                 {"workAllProcessorIDs", processors},
                 {"workAllPersonalizationVariants", Value::makeSet({"Factory - Shipping Settings"})},
                 {"workSelector", "stripRestorePlist:"},
                 {"workName", "Cross check and strip Restore.plist"}});
  }

  static Value r13Entry() {
    return closingEntry(Value::makeSet({"r13"}), Value::makeSet({"Corvid2,1"}),
                        Value::makeSet({"xr2120x"}));
  }

  static Value rewritten(Stripper3& engine) {
    return engine.modifiedFilelist().get("Restore/Restore.plist");
  }

  static const std::string& log() { return LogObject::sharedLogger().historicalLog(); }

  fs::path root_;
};

TEST_F(RestorePlistTest, KeepsOnlyRequestedProductsAndChosenImages) {
  auto engine = makeEngine(Value::makeArray({"r13"}));
  // r31's images were chosen too, but r31 was not requested.
  engine->restoreImagesSet().insert("system-r31.dmg");
  engine->ramDisksSet().insert("ramdisk-r31.dmg");
  Value entry = r13Entry();
  EXPECT_EQ(engine->stripRestorePlist(entry), 0);
  Value r = rewritten(*engine);
  ASSERT_TRUE(r.isDict());

  EXPECT_EQ(r.get("RamDisksByPlatform"), dict({{"xr2120x", dict({{"User", "ramdisk-r13.dmg"}})}}));
  EXPECT_EQ(r.get("SystemRestoreImagesByTarget"), dict({{"r13", dict({{"User", "system-r13.dmg"}})}}));
  // Membership is exact: another spelling of the model goes.
  EXPECT_EQ(r.get("SupportedProductTypes"), Value::makeArray({"Corvid2,1"}));
  EXPECT_EQ(r.get("SystemPartitionPadding"), dict({{"r13", 160}}));
  // Keyed by image, so r31's chosen image stays.
  EXPECT_EQ(r.get("MinimumSystemPartition"), dict({{"system-r13.dmg", 2048}, {"system-r31.dmg", 4096}}));
  EXPECT_EQ(log().find(kWarning), std::string::npos) << log();
}

TEST_F(RestorePlistTest, KernelCachesAreRefiledByOuterKey) {
  auto engine = makeEngine(Value::makeArray({"r13"}));
  engine->kernelCachesSet().insert("kernelcache.platform.r13");
  Value entry = r13Entry();
  engine->stripRestorePlist(entry);
  Value r = rewritten(*engine);

  // A processor id goes under the platform table, anything else under the
  // target table, whichever table it came from; "r13" is in both and the
  // target's entry replaces the platform's.
  EXPECT_EQ(r.get("KernelCachesByPlatform"),
            dict({{"xr2120x", dict({{"Release", "kernelcache.release.r13"}})}}));
  EXPECT_EQ(r.get("KernelCachesByTarget"), dict({{"r13", dict({{"Release", "kernelcache.target.r13"}})}}));
  // kernelcache.platform.r13 lost to the target entry, so nothing names it.
  EXPECT_NE(log().find(std::string(kWarning) + " kernelcache.platform.r13."), std::string::npos)
      << log();
}

TEST_F(RestorePlistTest, TargetKeyThatIsAProcessorLandsUnderPlatform) {
  writePlist("Restore/Restore.plist",
             dict({{"KernelCachesByTarget", dict({{"xr2120x", dict({{"Release", "kc.a"}})}})},
                   {"KernelCachesByPlatform", dict({{"j99", dict({{"Release", "kc.b"}, {"Debug", "kc.gone"}})}})}}));
  auto engine = makeEngine(Value::makeArray({"r13"}));
  engine->kernelCachesSet() = Value::makeSet({"kc.a", "kc.b"});
  Value entry = r13Entry();
  engine->stripRestorePlist(entry);
  Value r = rewritten(*engine);
  EXPECT_EQ(r.get("KernelCachesByPlatform"), dict({{"xr2120x", dict({{"Release", "kc.a"}})}}));
  EXPECT_EQ(r.get("KernelCachesByTarget"), dict({{"j99", dict({{"Release", "kc.b"}})}}));
  EXPECT_EQ(log(), "");
}

TEST_F(RestorePlistTest, UnreferencedKernelCachesWarnSortedIgnoringCaseAndStepGoesOn) {
  auto engine = makeEngine(Value::makeArray({"r13"}));
  engine->kernelCachesSet() = Value::makeSet(
      {"kernelcache.release.r13", "kernelcache.target.r13", "kernelcache.platform.r13",
       "kernelcache.zz", "Kernelcache.Y", "kernelcache.x"});
  Value entry = r13Entry();
  EXPECT_EQ(engine->stripRestorePlist(entry), 0);
  EXPECT_NE(log().find(std::string(kWarning) +
                       " kernelcache.platform.r13, kernelcache.x, Kernelcache.Y, kernelcache.zz.\n"),
            std::string::npos)
      << log();
  EXPECT_TRUE(rewritten(*engine).isDict());
}

TEST_F(RestorePlistTest, NoProductsRequestedDropsEveryTargetImageAndPadding) {
  auto engine = makeEngine(Value::makeArray());
  Value entry = closingEntry(Value::makeSet(), Value::makeSet({"Corvid2,1", "Tabula1,1", "alpha1,1"}),
                             Value::makeSet({"xr2120x", "xr2130x"}));
  engine->restoreImagesSet() = Value::makeSet({"system-r13.dmg", "system-r31.dmg"});
  engine->stripRestorePlist(entry);
  Value r = rewritten(*engine);
  EXPECT_EQ(r.get("SystemRestoreImagesByTarget"), Value::makeDict());
  EXPECT_EQ(r.get("SystemPartitionPadding"), Value::makeDict());
  // xr2130x is requested but none of its ramdisks was chosen.
  EXPECT_EQ(r.get("RamDisksByPlatform"), dict({{"xr2120x", dict({{"User", "ramdisk-r13.dmg"}})}}));
  // Keyed by image, not product: still filtered by the chosen images only.
  EXPECT_EQ(r.get("MinimumSystemPartition"), dict({{"system-r13.dmg", 2048}, {"system-r31.dmg", 4096}}));
  EXPECT_EQ(r.get("SupportedProductTypes"), Value::makeArray({"alpha1,1", "Corvid2,1", "Tabula1,1"}));
}

TEST_F(RestorePlistTest, MissingTablesComeBackEmptyAndOptionalOnesStayAbsent) {
  writePlist("Restore/Restore.plist", dict({{"ProductVersion", "9.1"}}));
  auto engine = makeEngine(Value::makeArray({"r13"}));
  engine->kernelCachesSet() = Value::makeSet();
  Value entry = r13Entry();
  EXPECT_EQ(engine->stripRestorePlist(entry), 0);
  Value r = rewritten(*engine);
  EXPECT_EQ(r, dict({{"ProductVersion", "9.1"},
                     {"KernelCachesByPlatform", Value::makeDict()},
                     {"KernelCachesByTarget", Value::makeDict()},
                     {"RamDisksByPlatform", Value::makeDict()},
                     {"SystemRestoreImagesByTarget", Value::makeDict()},
                     {"SupportedProductTypes", Value::makeArray()}}));
  EXPECT_FALSE(r.contains("SystemPartitionPadding"));
  EXPECT_FALSE(r.contains("MinimumSystemPartition"));
  EXPECT_EQ(log(), "");
}

TEST_F(RestorePlistTest, RebuildsFromTheLoadedFileWithoutChangingIt) {
  auto engine = makeEngine(Value::makeArray({"r13"}));
  const Value before = engine->restorePlist().entries();
  engine->modifiedFilelist().set("Restore/Restore.plist", dict({{"stale", true}}));
  Value entry = r13Entry();
  engine->stripRestorePlist(entry);
  Value r = rewritten(*engine);
  EXPECT_FALSE(r.contains("stale"));
  const Value& loaded = engine->restorePlist().entries();
  EXPECT_EQ(loaded, fullRestorePlist());
  EXPECT_TRUE(loaded.sharesStorageWith(before));
  EXPECT_TRUE(r.get("DeviceMap").sharesStorageWith(loaded.get("DeviceMap")));
  EXPECT_EQ(r.get("ProductVersion"), Value("9.1"));
  // Rewritten keys keep their places in the file.
  EXPECT_EQ(r.dict().keys(), loaded.dict().keys());
}

}  // namespace
}  // namespace velmar

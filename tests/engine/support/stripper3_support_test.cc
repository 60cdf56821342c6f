// The support steps as the manifest engine runs them: "Strip support files"
// over a small bundle, then the invisibles scrub and the cookie.

#include <gtest/gtest.h>

#include "engine/builtin_tables.h"
#include "engine/manifest/stripper3.h"
#include "engine/support/common_work.h"
#include "tests/engine/support/fake_support_host.h"

namespace velmar {
namespace {

using testing::dictOf;
using testing::setOf;

// Records which sub-steps ran and what entry they saw.
struct ToyEngine {
  std::vector<std::string> ran;
  int32_t first(Value& e) { return note("first", e, 0); }
  int32_t second(Value& e) { return note("second", e, 3); }
  int32_t third(Value& e) { return note("third", e, 0); }
  int32_t note(const char* name, Value& e, int32_t status) {
    ran.push_back(name + std::string(":") + e.get("seen").description());
    e.set("seen", name);
    return status;
  }
};

TEST(RunSubstepsTest, OneCopyForAllAndStopAtTheFirstFailure) {
  ToyEngine engine;
  Value entry = dictOf({{"seen", "none"}});
  EXPECT_EQ(runSubsteps(engine, entry, {&ToyEngine::first, &ToyEngine::second, &ToyEngine::third}), 3);
  EXPECT_EQ(engine.ran, (std::vector<std::string>{"first:none", "second:first"}));
  EXPECT_EQ(entry.get("seen"), Value("none"));
  EXPECT_EQ(runSubsteps<ToyEngine>(engine, entry, {}), 0);
}

class Stripper3SupportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Stripper3::tables().knownProducts = builtInKnownProducts();
    LogObject::sharedLogger().setHistoricalLog("");
    const testing::ScratchBundle& b = bundle_;
    b.plist("Restore/Firmware/Device_map.plist",
            dictOf({{"r13ap", dictOf({{"Platform", "xr2120x"}, {"ProductType", "Corvid2,1"}})},
                    {"r31ap", dictOf({{"Platform", "xr2130x"}, {"ProductType", "Tabula1,1"}})}}));
    b.file("Restore/Firmware/device_map.txt", "r13ap 1 2 3 Corvid2,1\nr31ap 1 2 3 Tabula1,1\n");
    b.plist("Restore/Firmware/device_map.plist", dictOf({{"r13ap", 1}, {"r31ap", 2}}));
    b.file("Restore/Firmware/target_map.txt", "r13\nr31\n");
    b.plist("Restore/Firmware/platform_keys.plist",
            dictOf({{"PlatformKeys", Value::makeArray({dictOf({{"PlatformName", "xr2120x"}}),
                                                       dictOf({{"PlatformName", "xr2130x"}})})}}));
    b.file("Debug/trace.log");
    b.file("Debug/.DS_Store");
    b.file("Tools-1.dmg");
    b.link("RestoreTools.dmg", "Tools-1.dmg");
    engine_ = Stripper3::stripperForPath(b.root(), Value::makeArray({"r13"}), Value(),
                                         dictOf({{"keepDebug", "YES"}, {"toolName", "velmarbs"}}));
    LogObject::sharedLogger().setHistoricalLog("");
  }
  void TearDown() override { Stripper3::tables().knownProducts = builtInKnownProducts(); }

  Value entry_ = dictOf({{"workSelector", "stripCommonWork:"},
                         {"workAllProducts", setOf({"r13"})},
                         {"workAllDeviceClasses", setOf({"r13ap"})},
                         {"workAllPersonalizationVariants", setOf({})}});
  testing::ScratchBundle bundle_;
  std::unique_ptr<Stripper3> engine_;
};

TEST_F(Stripper3SupportTest, SupportFilesThenInvisiblesThenCookie) {
  const Value before = entry_;
  EXPECT_EQ(engine_->stripCommonWork(entry_), 0);
  EXPECT_EQ(entry_, before);
  EXPECT_EQ(LogObject::sharedLogger().historicalLog(),
            "+++ device_map.txt found Corvid2,1.\n"
            "+++ device_map.plist found r13ap.\n"
            "+++ target_map.txt found r13.\n"
            "+++ platform_keys.plist found xr2120x.\n"
            "+++ Debug folder found 2 items.\n"
            "+++ RestoreTools found Tools-1.dmg.\n"
            "+++ Either FactoryDiskImage or signature file is missing. Include non of them.\n");
  Value modified = engine_->modifiedFiles();
  EXPECT_EQ(modified.get("Restore/Firmware/device_map.txt"), Value("r13ap 1 2 3 Corvid2,1\n"));
  EXPECT_EQ(modified.get("Restore/Firmware/device_map.plist"), dictOf({{"r13ap", 1}}));
  EXPECT_EQ(modified.get("Restore/Firmware/target_map.txt"), Value("r13\n"));
  EXPECT_EQ(modified.get("Restore/Firmware/platform_keys.plist").get("PlatformKeys").count(), 1u);
  EXPECT_EQ(engine_->strippedManifest(),
            Value::makeArray({"Debug/.DS_Store", "Debug/trace.log", "RestoreTools.dmg", "Tools-1.dmg"}));

  LogObject::sharedLogger().setHistoricalLog("");
  Value scrub = dictOf({{"workSelector", "stripInvisibles:"}});
  EXPECT_EQ(engine_->stripInvisibles(scrub), 0);
  Value cookie = dictOf({{"workSelector", "leaveCookie:"}});
  EXPECT_EQ(engine_->leaveCookie(cookie), 0);
  EXPECT_EQ(LogObject::sharedLogger().historicalLog(),
            "--- invisibles scrub 1 items.\n+++ Oreo's left.  No milk.\n");
  EXPECT_EQ(engine_->strippedManifest(),
            Value::makeArray({"Debug/trace.log", "RestoreTools.dmg", "Tools-1.dmg"}));
  Value made = engine_->modifiedFiles().get("VelmarBSCookie.plist");
  EXPECT_EQ(made.get("source"), Value(bundle_.root()));
  EXPECT_TRUE(made.contains("version_fullString"));
}

TEST_F(Stripper3SupportTest, PlatformKeysUseTheNarrowedProductsTable) {
  // Creation narrowed the table to the bundle's products; r31 stays known.
  Value entry = dictOf({{"workAllProducts", setOf({"r31", "r22"})}});
  EXPECT_EQ(engine_->stripRestoreFirmwarePlatformKeysDotPlist(entry), 0);
  EXPECT_EQ(LogObject::sharedLogger().historicalLog(), "+++ platform_keys.plist found xr2130x.\n");
}

}  // namespace
}  // namespace velmar

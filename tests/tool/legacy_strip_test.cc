// velmarbs on older bundles: the legacy engine chosen by --engine legacy and
// by auto when there is no build manifest, and the stripped bundle it writes
// checked file by file, links and cookie included.

#include <gtest/gtest.h>

#include "base/plist_io.h"
#include "synth/bundle_builder.h"
#include "synth/sample_bundles.h"
#include "synth/temp_dir.h"
#include "tests/tool/tool_test_support.h"

namespace velmar::tool {
namespace {

using testing::existsNoFollow;
using testing::linkText;
using testing::listTree;
using testing::propertyListsIn;
using testing::readText;
using testing::runVelmarbs;
using testing::ToolRun;

namespace fs = std::filesystem;

class LegacyStripTest : public ::testing::Test {
 protected:
  void write(bool withBuildManifest) {
    std::string error;
    ASSERT_TRUE(synth::writeBundle(synth::legacyBundle(withBuildManifest), bundle_, &error)) << error;
  }

  // Strips with --results; answers the results, or null after a failure.
  Value strip(std::vector<std::string> args) {
    args.insert(args.begin(), {"--source", bundle_, "--target", target_, "--results"});
    ToolRun r = runVelmarbs(args, scratch_.path());
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    std::vector<Value> lists = propertyListsIn(r.out);
    log_ = r.out;
    return r.status == 0 && lists.size() == 1 ? lists[0] : Value();
  }

  // The target holds exactly the kept paths, the rewritten ones and the
  // folders above them; every kept file, folder and link is the source's,
  // every rewritten one is what the results say.
  void expectTargetMatches(const Value& results) {
    std::set<std::string> expected;
    auto addWithFolders = [&](std::string path) {
      for (; !path.empty(); path = fs::path(path).parent_path().string()) expected.insert(path);
    };
    for (const std::string& path : results.get("strippedManifest").strings()) {
      addWithFolders(path);
      const std::string from = bundle_ + "/" + path, to = target_ + "/" + path;
      if (fs::is_symlink(from)) {
        EXPECT_EQ(linkText(to), linkText(from)) << path;
      } else if (fs::is_directory(from)) {
        EXPECT_TRUE(fs::is_directory(to)) << path;
      } else {
        EXPECT_EQ(readText(to), readText(from)) << path;
      }
    }
    for (const auto& [path, contents] : results.get("modifiedFiles").dict()) {
      addWithFolders(path);
      const std::string to = target_ + "/" + path;
      if (contents.isData()) {
        EXPECT_EQ(linkText(to), contents.dataValue().bytes) << path;
      } else if (contents.isString()) {
        EXPECT_EQ(readText(to), contents.str()) << path;
      } else {
        EXPECT_EQ(parsePropertyList(readText(to)), contents) << path;
      }
    }
    EXPECT_EQ(listTree(target_), expected);
  }

  synth::TempDir dir_{"velmar-legacy"};
  synth::TempDir scratch_{"velmar-scratch"};
  std::string bundle_ = dir_ / "Bundle";
  std::string target_ = dir_ / "Stripped";
  std::string log_;
};

TEST_F(LegacyStripTest, AutoStripsABundleWithoutBuildManifestFromItsRestorePlist) {
  write(false);
  Value results = strip({"--product", "r13", "--factory", "ss", "--unpersonalized", "on", "--verbose"});
  ASSERT_FALSE(results.isNull()) << log_;
  EXPECT_NE(log_.find(">>> ==========  1/ 7 Strip Restore and Restore.plist for r13ap ss. =========="),
            std::string::npos)
      << log_;
  expectTargetMatches(results);

  // What r13ap needs for shipping settings, and nothing of r11 or the
  // other stations.
  for (const char* path :
       {"Restore/kernelcache.release.xr2120x", "Restore/018-2120-001.dmg", "Restore/038-1300-001.dmg",
        "Restore/Firmware/BBX2_3.04.25.Release.bbfw",
        "Restore/Firmware/all_flash/all_flash.r13ap.production/bootloader.r13ap.img",
        "Restore/Firmware/dfu/stage1.r13ap.RELEASE.dfu", "038-9003-001.dmg"})
    EXPECT_TRUE(existsNoFollow(target_ + "/" + path)) << path;
  for (const char* path : {"Restore/kernelcache.release.xr2100x", "Restore/Firmware/all_flash/all_flash.r11ap.production",
                           "Restore/Firmware/all_flash/all_flash.r13ap.factoryfa", "Debug", ".DS_Store",
                           "Restore/.DS_Store", "Orrin RPKGs", "UnencryptedImages"})
    EXPECT_FALSE(existsNoFollow(target_ + "/" + path)) << path;
  EXPECT_EQ(linkText(target_ + "/Restore/C2-User-RAMDisk.dmg"), "018-2120-001.dmg");
  EXPECT_EQ(linkText(target_ + "/RestoreTools.dmg"), "038-9003-001.dmg");
  EXPECT_EQ(readText(target_ + "/Restore/Firmware/target_map.txt"), "r13 xr2120x Corvid2,1\n");
  Value restore = parsePropertyList(readText(target_ + "/Restore/Restore.plist"));
  EXPECT_EQ(restore.get("SupportedProductTypes"), Value::stringArray({"Corvid2,1"}));
  EXPECT_EQ(restore.get("RamDisksByPlatform").dict().keys(), std::vector<std::string>{"xr2120x"});

  // The cookie says where the bundle came from and what made it.
  Value cookie = parsePropertyList(readText(target_ + "/VelmarBSCookie.plist"));
  EXPECT_EQ(cookie.get("source"), Value(bundle_));
  EXPECT_EQ(cookie.get("version_fullString").str().rfind("velmarbs -- Version ", 0), 0u) << cookie.description();
  EXPECT_TRUE(cookie.get("rawArguments").containsMember(Value("--unpersonalized")));
}

TEST_F(LegacyStripTest, ForcedLegacyEngineFollowsTheBuildManifestWhenPersonalized) {
  write(true);
  Value results = strip({"--engine", "legacy", "--product", "r13", "--factory", "ss", "--personalized", "on",
                         "--unpersonalized", "off", "--noSymLinks"});
  ASSERT_FALSE(results.isNull()) << log_;
  // Only the personalized steps ran: no canonical ramdisk link of the
  // restore-plist path.
  EXPECT_FALSE(results.get("modifiedFiles").contains("Restore/C2-User-RAMDisk.dmg"));
  // --noSymLinks: the tools link is not kept, and the conventional names
  // are copies of what they name.
  EXPECT_FALSE(results.get("strippedManifest").containsMember(Value("RestoreTools.dmg")));
  const Value links = results.get("modifiedFiles");
  EXPECT_EQ(links.get("Restore/R13-UserOS.dmg"), Value::makeData("038-1300-001.dmg"));
  EXPECT_EQ(links.get("Restore/kernelcache.release.R13"), Value::makeData("kernelcache.release.xr2120x"));
  EXPECT_FALSE(fs::is_symlink(target_ + "/Restore/R13-UserOS.dmg"));
  EXPECT_EQ(readText(target_ + "/Restore/R13-UserOS.dmg"), readText(bundle_ + "/Restore/038-1300-001.dmg"));
  Value manifest = parsePropertyList(readText(target_ + "/Restore/BuildManifest.plist"));
  ASSERT_EQ(manifest.get("BuildIdentities").count(), 1u);
  EXPECT_EQ(manifest.get("BuildIdentities").arr()[0].valueForKeyPath("Info.DeviceClass"), Value("r13ap"));
  EXPECT_TRUE(existsNoFollow(target_ + "/VelmarBSCookie.plist"));
}

TEST_F(LegacyStripTest, QueriesOnALegacyBundle) {
  write(true);
  ToolRun r = runVelmarbs({"--knownProducts", "--source", bundle_, "--engine", "legacy"}, scratch_.path());
  ASSERT_EQ(r.status, 0) << r.out;
  // The built-in table, not narrowed to the bundle.
  EXPECT_EQ(propertyListsIn(r.out).at(0),
            Value::stringArray({"r11", "r12", "r13", "r21", "r22", "r23", "r31"}));
  r = runVelmarbs({"--validvariants", "--product", "r13", "--source", bundle_, "--engine", "legacy"},
                  scratch_.path());
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(propertyListsIn(r.out).at(0).get("validVariants"),
            Value::stringArray({"cti", "nandnuker", "ss", "swdl"}));
}

TEST_F(LegacyStripTest, UseRestorePlistDrivesTheUnpersonalizedSteps) {
  write(false);
  ToolRun r = runVelmarbs({"--source", bundle_, "--product", "r13", "--factory", "ss", "--useRestorePlist", "--results"},
                          scratch_.path());
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(propertyListsIn(r.out).at(0).get("modifiedFiles").get("Restore/C2-User-RAMDisk.dmg"),
            Value::makeData("018-2120-001.dmg"));
}

TEST_F(LegacyStripTest, AFailingStepWritesNothing) {
  write(false);
  fs::remove_all(bundle_ + "/Restore/Firmware/dfu");
  ToolRun r = runVelmarbs({"--source", bundle_, "--target", target_, "--product", "r13", "--factory", "ss",
                           "--unpersonalized", "on"},
                          scratch_.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("XXX ERROR no dfu found in bundle."), std::string::npos) << r.out;
  EXPECT_FALSE(existsNoFollow(target_));
}

}  // namespace
}  // namespace velmar::tool

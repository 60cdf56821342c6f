// The optional companions at the bundle root: kept on request, else dropped
// (and, in the legacy manner, reported as scrubbed).

#include "engine/support/folder_scrubs.h"

#include <gtest/gtest.h>

#include "tests/engine/support/fake_support_host.h"

namespace velmar::testing {
namespace {

using Paths = std::vector<std::string>;

class FolderScrubTest : public SupportStepTest {
 protected:
  Value entry = dictOf({{"workAllProducts", setOf({"r13"})},
                        {"workAllPersonalizationVariants", setOf({"Factory - Shipping Settings"})},
                        {"workProductList", arrayOf({"r13"})},
                        {"workPersonalizationVariantList", arrayOf({"FullInternalOS"})}});
  void SetUp() override {
    SupportStepTest::SetUp();
    for (const char* option :
         {"keepDebug", "keepRPKGs", "keepHomeDiagnostics", "keepSDK", "keepBundleImages"})
      manifest_.options.set(option, true);
    legacy_.options = manifest_.options;
  }
};

TEST_F(FolderScrubTest, PackagesKeepEverythingBelowAMatch) {
  put("Orrin RPKGs/ReadMe.txt");
  EXPECT_EQ(stripRPKGs(manifest_, manifest_.supportRequest(entry)), 0);
  // Borrowed from the platform-keys step, placeholders and all.
  EXPECT_EQ(takeLog(), "!!! WARNING: platform_keys.plist (null) ((null)) not found.\n");

  for (const char* p : {"r13.RPKG/Payload", "r31_FullInternal.rpkg/Payload", "r31.RPKG/Payload"})
    put(std::string("Orrin RPKGs/") + p);
  stripRPKGs(manifest_, manifest_.supportRequest(entry));
  EXPECT_EQ(takeLog(), "+++ RPKGs found Orrin RPKGs/r13.RPKG.\n");
  EXPECT_EQ(manifest_.kept, setOf({"Orrin RPKGs/r13.RPKG/Payload"}));
  // The legacy stations include the full internal image, so another board's
  // internal package comes along; each miss is warned per board code.
  stripRPKGsPerBoard(legacy_, legacy_.supportRequest(entry));
  EXPECT_EQ(takeLog(),
            "!!! WARNING Cannot find RPKG for r13.\n"
            "--- RPKGs scrub Orrin RPKGs/r31.RPKG.\n"
            "+++ RPKGs found Orrin RPKGs/r13.RPKG, Orrin RPKGs/r31_FullInternal.rpkg.\n");
  EXPECT_EQ(legacy_.keepCalls,
            (std::vector<Paths>{{"Orrin RPKGs", "Orrin RPKGs/r13.RPKG", "Orrin RPKGs/r13.RPKG/Payload",
                                 "Orrin RPKGs/r31_FullInternal.rpkg",
                                 "Orrin RPKGs/r31_FullInternal.rpkg/Payload"}}));
}

TEST_F(FolderScrubTest, UnwantedFoldersAreSilentOrScrubbed) {
  manifest_.options = legacy_.options = Value::makeDict();
  for (const char* p : {"Orrin RPKGs/r13.RPKG", "Debug/a", "Debug/b", "BundleImages/i.png",
                        "UnencryptedImages/u.dmg", "HomeDiagnostic.dmg"})
    put(p);
  for (auto* step : {stripRPKGs, stripDebugFolder, stripBundleImages, stripHomeDiags, stripSDKs})
    EXPECT_EQ(step(manifest_, manifest_.supportRequest(entry)), 0);
  EXPECT_EQ(logText(), "");
  for (auto* step :
       {stripRPKGsPerBoard, stripDebugFolder, stripUnencryptedImages, stripHomeDiags, stripSDKs, stripBundleImages})
    EXPECT_EQ(step(legacy_, legacy_.supportRequest(entry)), 0);
  // Legacy listings count the folder itself; a plain file is still scrubbed.
  EXPECT_EQ(logText(),
            "--- RPKGs scrub 2 items.\n"
            "--- Debug folder scrub 3 items.\n"
            "--- Unencrypted Images scrub 2 items.\n"
            "--- HomeDiagnostics scrub.\n"
            "--- BundleImages scrub 2 items.\n");
  EXPECT_TRUE(manifest_.keepCalls.empty() && legacy_.keepCalls.empty());
}

TEST_F(FolderScrubTest, KeptFoldersKeepTheirDirectItemsAndEmptyOnesLogNothing) {
  fs::create_directories(dir_ / "Debug");
  stripDebugFolder(manifest_, manifest_.supportRequest(entry));
  EXPECT_EQ(logText(), "");
  put("Debug/a");
  put("Debug/sub/b");
  stripDebugFolder(manifest_, manifest_.supportRequest(entry));
  EXPECT_EQ(logText(), "+++ Debug folder found 2 items.\n");
  EXPECT_EQ(manifest_.keepCalls, (std::vector<Paths>{{}, {"Debug/a", "Debug/sub"}}));
}

TEST_F(FolderScrubTest, LinkedImagesKeepTargetThenLinkButAPlainFileIsNoLink) {
  put("HomeDiagnostic.dmg");
  stripHomeDiags(manifest_, manifest_.supportRequest(entry));
  stripHomeDiags(legacy_, legacy_.supportRequest(entry));
  EXPECT_EQ(takeLog(), "");
  EXPECT_EQ(legacy_.keepCalls, (std::vector<Paths>{{}}));  // its (empty) partial list

  fs::remove(dir_ / "HomeDiagnostic.dmg");
  put("Images/HD-1.dmg");
  link("HomeDiagnostic.dmg", "Images/HD-1.dmg");
  link("CorvidSDKInternalNonUI.dmg", "SDK-7.dmg");
  stripHomeDiags(manifest_, manifest_.supportRequest(entry));
  stripSDKs(manifest_, manifest_.supportRequest(entry));
  EXPECT_EQ(takeLog(), "+++ HomeDiagnostics found.\n+++ NonUI SDK found \"SDK-7.dmg\".\n");
  EXPECT_EQ(manifest_.keepCalls,
            (std::vector<Paths>{
                {}, {"Images/HD-1.dmg", "HomeDiagnostic.dmg"}, {"SDK-7.dmg", "CorvidSDKInternalNonUI.dmg"}}));
}

TEST_F(FolderScrubTest, FactoryImageNeedsItsSignature) {
  const std::string missing =
      "+++ Either FactoryDiskImage or signature file is missing. Include non of them.\n";
  put("FactoryDiskImage.dmg");
  stripFactoryDiskImage(manifest_, manifest_.supportRequest(entry));
  put("FactoryDiskImage.dmg.signature");
  stripFactoryDiskImage(manifest_, manifest_.supportRequest(entry));
  fs::remove(dir_ / "FactoryDiskImage.dmg");
  stripFactoryDiskImage(manifest_, manifest_.supportRequest(entry));
  EXPECT_EQ(logText(), missing + "+++ FactoryDiskImage and signature file found.\n" + missing);
  EXPECT_EQ(manifest_.keepCalls,
            (std::vector<Paths>{{"FactoryDiskImage.dmg", "FactoryDiskImage.dmg.signature"}}));
}

}  // namespace
}  // namespace velmar::testing

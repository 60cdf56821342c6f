// The optional companions at the bundle root: kept on request, else dropped
// (and, in the legacy manner, reported as scrubbed).

#include "engine/support/folder_scrubs.h"

#include <gtest/gtest.h>

#include "tests/engine/support/fake_support_host.h"

namespace velmar {
namespace {

using testing::dictOf;
using testing::setOf;
using Paths = std::vector<std::string>;

TEST(PackageRulesTest, CandidatesEndInRpkgInAnyCase) {
  EXPECT_TRUE(isPackageCandidate("Orrin RPKGs/r13.RPKG"));
  EXPECT_TRUE(isPackageCandidate("Orrin RPKGs/r13.rpkg"));
  EXPECT_FALSE(isPackageCandidate("Orrin RPKGs/ReadMe.txt"));
  EXPECT_FALSE(isPackageCandidate("Orrin RPKGs"));
}

TEST(PackageRulesTest, InternalImagesMatchEveryBoard) {
  const Value none = setOf({});
  EXPECT_TRUE(packageMatches("Orrin RPKGs/R13_Boot.RPKG", "r13", none));
  EXPECT_FALSE(packageMatches("Orrin RPKGs/r31_FullInternal.RPKG", "r13", none));
  EXPECT_TRUE(packageMatches("Orrin RPKGs/r31_fullinternal.RPKG", "r13", setOf({"FullInternalOS"})));
  EXPECT_TRUE(
      packageMatches("Orrin RPKGs/r31_VendorInternal.RPKG", "r13", Value::makeArray({"VendorInternalOS"})));
  EXPECT_FALSE(packageMatches("Orrin RPKGs/r31_VendorInternal.RPKG", "r13", setOf({"LiteInternalOS"})));
  EXPECT_TRUE(packageMatches("Orrin RPKGs/LiteInternal.RPKG", "r13", setOf({"LiteInternalOS"})));
  EXPECT_FALSE(packageMatches("Orrin RPKGs/x.RPKG", "", none));
}

TEST(PackageRulesTest, SelectionTriesEveryBoardOnEveryCandidate) {
  Paths candidates = {"Orrin RPKGs", "Orrin RPKGs/r13.RPKG", "Orrin RPKGs/r31.RPKG", "Orrin RPKGs/notes.txt"};
  PackageSelection s = selectPackages(candidates, Value::makeArray({"r13", "r31"}), setOf({}));
  EXPECT_EQ(s.found, setOf({"Orrin RPKGs/r13.RPKG", "Orrin RPKGs/r31.RPKG"}));
  EXPECT_EQ(s.unmatched, setOf({"Orrin RPKGs/r13.RPKG", "Orrin RPKGs/r31.RPKG"}));
  EXPECT_EQ(s.unmatchedBoards, (Paths{"r13", "r31"}));
}

class FolderScrubTest : public testing::SupportStepTest {
 protected:
  Value entry = dictOf({{"workAllProducts", setOf({"r13"})},
                        {"workAllPersonalizationVariants", setOf({"Factory - Shipping Settings"})},
                        {"workProductList", Value::makeArray({"r13"})},
                        {"workPersonalizationVariantList", Value::makeArray({"FullInternalOS"})}});
  void keepAll(testing::FakeSupportHost& host) {
    for (const char* option :
         {"keepDebug", "keepRPKGs", "keepHomeDiagnostics", "keepSDK", "keepBundleImages"})
      host.options.set(option, true);
  }
};

TEST_F(FolderScrubTest, PackagesFolderWithoutPackagesBorrowsThePlatformKeysWarning) {
  bundle_.file("Orrin RPKGs/ReadMe.txt");
  keepAll(manifest_);
  EXPECT_EQ(stripRPKGs(manifest_, entry), 0);
  EXPECT_EQ(logged(), "!!! WARNING: platform_keys.plist (null) ((null)) not found.\n");
  EXPECT_TRUE(manifest_.keepCalls.empty());
}

TEST_F(FolderScrubTest, PackagesKeepEverythingBelowAMatch) {
  bundle_.file("Orrin RPKGs/r13.RPKG/Payload");
  bundle_.file("Orrin RPKGs/r31_FullInternal.rpkg/Payload");
  bundle_.file("Orrin RPKGs/r31.RPKG/Payload");
  keepAll(manifest_);
  stripRPKGs(manifest_, entry);
  EXPECT_EQ(logged(), "+++ RPKGs found Orrin RPKGs/r13.RPKG.\n");
  EXPECT_EQ(manifest_.kept, setOf({"Orrin RPKGs/r13.RPKG/Payload"}));

  // The legacy stations include the full internal image: another board's
  // internal package comes along; each miss is warned per board code.
  LogObject::sharedLogger().setHistoricalLog("");
  keepAll(legacy_);
  stripRPKGs(legacy_, entry);
  EXPECT_EQ(logged(),
            "!!! WARNING Cannot find RPKG for r13.\n"
            "--- RPKGs scrub Orrin RPKGs/r31.RPKG.\n"
            "+++ RPKGs found Orrin RPKGs/r13.RPKG, Orrin RPKGs/r31_FullInternal.rpkg.\n");
  EXPECT_EQ(legacy_.keepCalls,
            (std::vector<Paths>{{"Orrin RPKGs", "Orrin RPKGs/r13.RPKG", "Orrin RPKGs/r13.RPKG/Payload",
                                 "Orrin RPKGs/r31_FullInternal.rpkg",
                                 "Orrin RPKGs/r31_FullInternal.rpkg/Payload"}}));
}

TEST_F(FolderScrubTest, UnwantedFoldersAreSilentOrScrubbed) {
  bundle_.file("Orrin RPKGs/r13.RPKG");
  bundle_.file("Debug/a");
  bundle_.file("Debug/b");
  bundle_.file("BundleImages/i.png");
  bundle_.file("UnencryptedImages/u.dmg");
  for (auto* step : {stripRPKGs, stripDebugFolder, stripBundleImages, stripHomeDiags, stripSDKs})
    EXPECT_EQ(step(manifest_, entry), 0);
  EXPECT_EQ(logged(), "");
  EXPECT_TRUE(manifest_.keepCalls.empty());

  bundle_.file("HomeDiagnostic.dmg");  // not a link, but listed
  for (auto* step :
       {stripRPKGs, stripDebugFolder, stripUnencryptedImages, stripHomeDiags, stripSDKs, stripBundleImages})
    EXPECT_EQ(step(legacy_, entry), 0);
  // Legacy listings count the folder itself.
  EXPECT_EQ(logged(),
            "--- RPKGs scrub 2 items.\n"
            "--- Debug folder scrub 3 items.\n"
            "--- Unencrypted Images scrub 2 items.\n"
            "--- HomeDiagnostics scrub.\n"
            "--- BundleImages scrub 2 items.\n");
  EXPECT_TRUE(legacy_.keepCalls.empty());
}

TEST_F(FolderScrubTest, KeptFoldersKeepTheirDirectItems) {
  bundle_.file("Debug/a");
  bundle_.file("Debug/sub/b");
  keepAll(manifest_);
  stripDebugFolder(manifest_, entry);
  stripBundleImages(manifest_, entry);
  EXPECT_EQ(logged(), "+++ Debug folder found 2 items.\n");
  EXPECT_EQ(manifest_.keepCalls, (std::vector<Paths>{{"Debug/a", "Debug/sub"}, {}}));
}

TEST_F(FolderScrubTest, EmptyKeptFolderLogsAndKeepsNothing) {
  bundle_.folder("Debug");
  keepAll(manifest_);
  stripDebugFolder(manifest_, entry);
  EXPECT_EQ(logged(), "");
  EXPECT_EQ(manifest_.kept.count(), 0u);
}

TEST_F(FolderScrubTest, LinkedImagesKeepTargetThenLink) {
  bundle_.file("Images/HD-1.dmg");
  bundle_.link("HomeDiagnostic.dmg", "Images/HD-1.dmg");
  bundle_.link("CorvidSDKInternalNonUI.dmg", "SDK-7.dmg");
  keepAll(manifest_);
  stripHomeDiags(manifest_, entry);
  stripSDKs(manifest_, entry);
  EXPECT_EQ(logged(), "+++ HomeDiagnostics found.\n+++ NonUI SDK found \"SDK-7.dmg\".\n");
  EXPECT_EQ(manifest_.keepCalls, (std::vector<Paths>{{"Images/HD-1.dmg", "HomeDiagnostic.dmg"},
                                                     {"SDK-7.dmg", "CorvidSDKInternalNonUI.dmg"}}));
}

TEST_F(FolderScrubTest, PlainFileIsNotTheDiagnosticsLink) {
  bundle_.file("HomeDiagnostic.dmg");
  keepAll(manifest_);
  keepAll(legacy_);
  stripHomeDiags(manifest_, entry);
  stripHomeDiags(legacy_, entry);
  EXPECT_EQ(logged(), "");
  EXPECT_EQ(manifest_.kept.count(), 0u);
  // The legacy manner still records its (empty) partial list.
  EXPECT_EQ(legacy_.keepCalls, (std::vector<Paths>{{}}));
}

TEST_F(FolderScrubTest, FactoryImageNeedsItsSignature) {
  bundle_.file("FactoryDiskImage.dmg");
  stripFactoryDiskImage(manifest_, entry);
  bundle_.file("FactoryDiskImage.dmg.signature");
  stripFactoryDiskImage(manifest_, entry);
  std::filesystem::remove(bundle_.path("FactoryDiskImage.dmg"));
  stripFactoryDiskImage(manifest_, entry);
  EXPECT_EQ(logged(),
            "+++ Either FactoryDiskImage or signature file is missing. Include non of them.\n"
            "+++ FactoryDiskImage and signature file found.\n"
            "+++ Either FactoryDiskImage or signature file is missing. Include non of them.\n");
  EXPECT_EQ(manifest_.keepCalls,
            (std::vector<Paths>{{"FactoryDiskImage.dmg", "FactoryDiskImage.dmg.signature"}}));
}

}  // namespace
}  // namespace velmar

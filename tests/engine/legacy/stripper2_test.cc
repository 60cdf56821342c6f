// Creation, services, validity queries, pre-analysis and whole strips of the
// legacy engine on older synthetic bundles.

#include "engine/legacy/stripper2.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/engine/legacy/legacy_fixture.h"

namespace velmar::testing {
namespace {

using Names = std::vector<std::string>;

Names sorted(Names v) {
  std::sort(v.begin(), v.end());
  return v;
}

// Each entry as "selector title".
std::string workListText(const Stripper2& e) {
  std::string text;
  for (const Value& entry : e.workList().arr())
    text += entry.get("workSelector").str() + " " + entry.get("workName").str() + "\n";
  return text;
}

class Stripper2Test : public LegacyTest {};

// ---- creation and services --------------------------------------------------------

TEST_F(Stripper2Test, CreationRecordsTheRequestAndListsTheBundleOnce) {
  write(synth::legacyBundle(false));
  auto e = engine(arrayOf({"r13"}), Value(), dictOf({{"keepDebug", "yes"}}));
  EXPECT_EQ(e->stripInfo(), dictOf({{"bundleRoot", root()}, {"products", arrayOf({"r13"})}}));
  EXPECT_EQ(e->stripOptions(), dictOf({{"keepDebug", "yes"}}));
  const Names& listing = e->originalManifest();
  EXPECT_NE(std::find(listing.begin(), listing.end(), "Restore/Firmware/dfu"), listing.end());
  EXPECT_EQ(std::find(listing.begin(), listing.end(), "Restore/BuildManifest.plist"), listing.end());
  // Answers come from the listing, not the disk.
  writeFile(root() + "/Debug/late.txt");
  EXPECT_EQ(e->submanifestStartingAt("Debug", false),
            (Names{"Debug", "Debug/.DS_Store", "Debug/r13ap.symbols"}));
  EXPECT_EQ(Stripper2::knownProducts(), (Names{"r11", "r12", "r13", "r21", "r22", "r23", "r31"}));
}

TEST_F(Stripper2Test, KeepListAndListingServices) {
  write(synth::legacyBundle(false));
  auto e = engine();
  Value keep = Value::makeSet();
  // True means missing: nothing is added.
  EXPECT_TRUE(e->addSubpath("Restore/nothing.dmg", keep));
  EXPECT_EQ(keep.count(), 0u);
  EXPECT_FALSE(e->addSubpath("Restore/Firmware/dfu/stage1.r13ap.RELEASE.dfu", keep));
  EXPECT_EQ(keep, setOf({"Restore", "Restore/Firmware", "Restore/Firmware/dfu",
                         "Restore/Firmware/dfu/stage1.r13ap.RELEASE.dfu"}));

  // The start comes first, even for an empty folder; a missing start gives nothing.
  std::filesystem::remove_all(root() + "/Restore/Firmware/dfu");
  std::filesystem::create_directories(root() + "/Restore/Firmware/dfu");
  auto fresh = engine();
  EXPECT_EQ(fresh->submanifestStartingAt("Restore/Firmware/dfu", false), (Names{"Restore/Firmware/dfu"}));
  EXPECT_TRUE(fresh->submanifestStartingAt("Restore/Missing").empty());
  Names deep = fresh->submanifestStartingAt("Restore/Firmware/all_flash");
  Names shallow = fresh->submanifestStartingAt("Restore/Firmware/all_flash", false);
  EXPECT_EQ(shallow.front(), "Restore/Firmware/all_flash");
  EXPECT_EQ(shallow.size(), 5u);  // the folder and its four flash sets
  EXPECT_GT(deep.size(), shallow.size());
}

TEST_F(Stripper2Test, PropertyListsAreReadAfreshWithNotesOnlyWhenVerbose) {
  write(synth::legacyBundle(false));
  writeFile(root() + "/Restore/Broken.plist", "<plist><dict><key>x</key>");
  auto e = engine();
  EXPECT_TRUE(e->mutableDictionaryAtSubpath("Restore/BuildManifest.plist").isNull());
  EXPECT_TRUE(e->mutableDictionaryAtSubpath("Restore/Broken.plist").isNull());
  EXPECT_EQ(takeLog(), "");
  e->setVerbose(true);
  e->mutableDictionaryAtSubpath("Restore/BuildManifest.plist");
  e->mutableDictionaryAtSubpath("Restore/Broken.plist");
  EXPECT_EQ(takeLog(),
            "!!! NOTE: \"Restore/BuildManifest.plist\" not found.\n"
            "!!! NOTE: cannot unserialize \"Restore/Broken.plist\" - it is not a property list.\n");
  Value a = e->mutableDictionaryAtSubpath("Restore/Restore.plist");
  Value b = e->mutableDictionaryAtSubpath("Restore/Restore.plist");
  a.set("SupportedProductTypes", Value::makeArray());
  EXPECT_NE(a, b);
}

// ---- validity queries -------------------------------------------------------------

TEST_F(Stripper2Test, ValidProductsAndVariantsComeFromTheBuildManifest) {
  write(synth::legacyBundle(true));
  EXPECT_EQ(sorted(engine()->validProducts().strings()), (Names{"r11", "r13"}));
  EXPECT_EQ(sorted(engine(arrayOf({"r13"}))->validFactoryVariants().strings()),
            (Names{"cti", "nandnuker", "ss", "swdl"}));
  // The development class only with keepDevFirmware; none without products.
  EXPECT_EQ(sorted(engine(arrayOf({"r13"}), Value(), dictOf({{"stripAPFirmware", true}, {"keepDevFirmware", true}}))
                       ->validFactoryVariants()
                       .strings()),
            (Names{"debug", "internal-dev"}));
  EXPECT_EQ(engine()->validFactoryVariants().count(), 0u);
  EXPECT_EQ(takeLog(), "");

  std::filesystem::remove(root() + "/Restore/BuildManifest.plist");
  EXPECT_EQ(engine()->validProducts(), arrayOf({}));
  EXPECT_EQ(engine(arrayOf({"r13"}))->validFactoryVariants(), arrayOf({}));
  EXPECT_EQ(takeLog(),
            "XXX ERROR: BuildManifest.plist cannot be read.\nXXX ERROR: BuildManifest.plist cannot be read.\n");
}

TEST_F(Stripper2Test, FactoryVariantsKeepOneStationPerMatchingIdentity) {
  BundleDescription d = synth::legacyBundle(true);
  d.identities.push_back({"r13ap", "Factory - Shipping Settings", "", Value(), {}});
  write(d);
  auto e = engine();
  Value manifest = e->mutableDictionaryAtSubpath("Restore/BuildManifest.plist");
  // Shipping settings stands for "cti" and "ss"; its second identity names both again.
  EXPECT_EQ(e->factoryVariantsForDeviceClasses(arrayOf({"r13ap", ""}), manifest),
            arrayOf({"cti", "ss", "nandnuker", "swdl", "cti", "ss"}));
  EXPECT_EQ(e->factoryVariantsForDeviceClasses(arrayOf({"r13ap"}), Value()), arrayOf({}));
}

// ---- pre-analysis ------------------------------------------------------------------

TEST_F(Stripper2Test, WorkListServesEachClassAndStationInTheSpecifiedOrder) {
  write(synth::legacyBundle(true));
  auto e = engine(arrayOf({"R13"}), arrayOf({"ss"}),
                  dictOf({{"checkPersonalized", true}, {"useRestorePlistInsteadOfBuildManifest", true},
                          {"keepDevFirmware", true}}));
  EXPECT_TRUE(e->checkUnpersonalized());
  ASSERT_EQ(e->preanalyzeRequest(), Status(0));
  EXPECT_EQ(workListText(*e),
            "stripRestoreUsingHexloom: Strip Restore and BuildManifest.plist for r13ap ss.\n"
            "stripRestorePlistUsingHexloom: Strip Restore.plist using BuildManifest.plist for r13ap ss.\n"
            "stripRestoreWithoutHexloom: Strip Restore and Restore.plist for r13ap ss.\n"
            "stripBuildManifestWithoutHexloom: Strip BuildManifest.plist using Restore.plist for r13ap ss.\n"
            "stripRestoreUsingHexloom: Strip Restore and BuildManifest.plist for r13dev ss.\n"
            "stripRestorePlistUsingHexloom: Strip Restore.plist using BuildManifest.plist for r13dev ss.\n"
            "stripRestoreWithoutHexloom: Strip Restore and Restore.plist for r13dev ss.\n"
            "stripBuildManifestWithoutHexloom: Strip BuildManifest.plist using Restore.plist for r13dev ss.\n"
            "stripCommonWork: Strip support files\n"
            "mergeStrippedManifests: Merging stripped manifests\n"
            "mergeModifiedFiles: Merging modified files\n"
            "stripInvisibles: Strip invisibles\n"
            "leaveCookie: Leaving cookie for Santa\n");
  const Value& list = e->workList();
  // The product's facts are found under the name as given, so "R13" has none.
  EXPECT_EQ(list.arr()[2], dictOf({{"workVariant", "ss"},
                                   {"workProduct", "R13"},
                                   {"workDeviceClass", "r13ap"},
                                   {"workKernelCachesList", arrayOf({"Release"})},
                                   {"workFirmwareTypesList", arrayOf({"production"})},
                                   {"workSystemImageType", "User"},
                                   {"workDFUTypesList", arrayOf({"RELEASE", "DEVELOPMENT"})},
                                   {"workSelector", "stripRestoreWithoutHexloom:"},
                                   {"workName", "Strip Restore and Restore.plist for r13ap ss."}}));
  EXPECT_FALSE(list.arr()[3].contains("workDFUTypesList"));
  EXPECT_EQ(list.arr()[8], dictOf({{"workDeviceClassList", arrayOf({"r13ap", "r13dev"})},
                                   {"workProductList", arrayOf({"R13"})},
                                   {"workPersonalizationVariantList", arrayOf({"Factory - Shipping Settings"})},
                                   {"workSelector", "stripCommonWork:"},
                                   {"workName", "Strip support files"}}));
  EXPECT_EQ(takeLog(), ">>> Work List\n");
}

TEST_F(Stripper2Test, StationsComeFromTheManifestPerProductAndMayBeNone) {
  write(synth::legacyBundle(true));
  auto e = engine(arrayOf({"r11", "r12"}), Value(), personalized());
  ASSERT_EQ(e->preanalyzeRequest(), Status(0));
  const Value& list = e->workList();
  // r11ap: shipping settings is cti and ss; r12 is in no identity.
  ASSERT_EQ(list.count(), 4u + 5u);
  EXPECT_EQ(list.arr()[0].get("workName"), Value("Strip Restore and BuildManifest.plist for r11ap cti."));
  EXPECT_EQ(list.arr()[0].get("workModelList"), arrayOf({"Corvid1,1"}));
  EXPECT_EQ(list.arr()[0].get("workProcessorID"), Value("xr2100x"));
  EXPECT_EQ(list.arr()[2].get("workName"), Value("Strip Restore and BuildManifest.plist for r11ap ss."));
  EXPECT_EQ(list.arr()[4].get("workProductList"), arrayOf({"r11"}));

  // Neither class: only the five bundle-wide items, with empty lists.
  auto none = engine(arrayOf({"r13"}), arrayOf({"ss"}), dictOf({{"stripAPFirmware", true}}));
  ASSERT_EQ(none->preanalyzeRequest(), Status(0));
  EXPECT_EQ(none->workList().count(), 5u);
  EXPECT_EQ(none->workList().arr()[0].get("workDeviceClassList"), arrayOf({}));
}

TEST_F(Stripper2Test, PreAnalysisNeedsTheManifestsItsModesRead) {
  write(synth::legacyBundle(false));
  EXPECT_EQ(engine(Value(), Value(), personalized())->strip(), 1);
  EXPECT_EQ(takeLog(), "XXX ERROR: BuildManifest.plist cannot be read.\n");
  std::filesystem::remove(root() + "/Restore/Restore.plist");
  auto e = engine(Value(), Value(), dictOf({{"useRestorePlistInsteadOfBuildManifest", "Y"}}));
  EXPECT_EQ(e->strip(), 1);
  EXPECT_EQ(takeLog(), "XXX ERROR: Restore.plist cannot be read.\n");
  EXPECT_EQ(e->workList().count(), 0u);
}

// ---- whole strips ------------------------------------------------------------------

TEST_F(Stripper2Test, WholeStripWithoutBuildManifestKeepsOneStationAndLeavesTheCookie) {
  write(synth::legacyBundle(false));
  auto e = engine(arrayOf({"r13"}), arrayOf({"ss"}),
                  dictOf({{"checkUnpersonalized", true}, {"toolName", "velmarbs"}, {"toolVersion", "2.5"}}));
  ASSERT_EQ(e->strip(), 0) << logText();
  // The restore step's paths and the tools image, merged and sorted ignoring case.
  const Names kept = e->strippedManifest().strings();
  EXPECT_EQ(kept.size(), 16u);
  EXPECT_EQ(kept.front(), "038-9003-001.dmg");
  EXPECT_EQ(kept[9], "Restore/Firmware/BBX2_3.04.25.Release.bbfw");
  EXPECT_EQ(kept.back(), "RestoreTools.dmg");
  const Value files = e->modifiedFiles();
  EXPECT_EQ(files.dict().keys(),
            (Names{"Restore/C2-User-RAMDisk.dmg", "Restore/Restore.plist", "Restore/Firmware/device_map.txt",
                   "Restore/Firmware/device_map.plist", "Restore/Firmware/target_map.txt",
                   "Restore/Firmware/platform_keys.plist", "VelmarBSCookie.plist"}));
  // The cookie was left after the merge, yet it is in the result.
  EXPECT_EQ(files.get("VelmarBSCookie.plist").get("version"), Value("2.500000"));
  EXPECT_EQ(files.get("VelmarBSCookie.plist").get("source"), Value(root()));
}

TEST_F(Stripper2Test, BothPathsOnABundleWithBuildManifestMergeTheirRewrittenManifests) {
  write(synth::legacyBundle(true));
  auto e = engine(arrayOf({"r13"}), arrayOf({"ss"}),
                  dictOf({{"checkPersonalized", true}, {"checkUnpersonalized", true}, {"noCookie", true}}));
  ASSERT_EQ(e->strip(), 0) << logText();
  EXPECT_TRUE(logged("||| merging plist Restore/Restore.plist."));
  EXPECT_TRUE(logged("||| merging plist Restore/BuildManifest.plist."));
  const Value files = e->modifiedFiles();
  // Both paths cut the restore plist alike, so the merge changes nothing.
  EXPECT_EQ(files.get("Restore/Restore.plist").get("RamDisksByPlatform").dict().keys(),
            Names{"xr2120x"});
  EXPECT_EQ(files.get("Restore/BuildManifest.plist").get("BuildIdentities").count(), 1u);
  for (const char* link : {"Restore/R13-UserOS.dmg", "Restore/C2-User-RAMDisk.dmg"})
    EXPECT_TRUE(files.get(link).isData()) << link;
  // The restore tools and the map texts kept by the personalized step.
  const Value kept = e->strippedManifest();
  EXPECT_TRUE(kept.containsMember(Value("Restore/Firmware/target_map.txt")));
  EXPECT_TRUE(kept.containsMember(Value("RestoreTools.dmg")));
}

TEST_F(Stripper2Test, AToolsLinkLeadingOutOfTheListingStopsTheRun) {
  BundleDescription d = synth::legacyBundle(false);
  d.support.restoreToolsTarget.clear();
  d.addLink("RestoreTools.dmg", "038-9404-001.dmg");
  write(d);
  auto e = engine(arrayOf({"r13"}), arrayOf({"ss"}));
  EXPECT_EQ(e->strip(), 1);
  EXPECT_TRUE(logged("XXX ERROR: RestoreTools \"038-9404-001.dmg\" missing from bundle."));
  EXPECT_TRUE(logged(">>> ==========  1/ 5 Strip support files =========="));
  EXPECT_FALSE(logged(">>> ==========  2/ 5 Merging stripped manifests =========="));
  EXPECT_TRUE(e->strippedManifest().isNull());
}

TEST_F(Stripper2Test, PropertyListsOfTheWrongShapeAreStrippedWithoutHarm) {
  BundleDescription d = synth::legacyBundle(true);
  d.editPlist("Restore/Restore.plist", [](Value& plist) {
    plist.set("KernelCachesByTarget", dictOf({{"r13", "kernelcache.release.xr2120x"}}));
    plist.set("RamDisksByPlatform", "xr2120x");
    plist.set("SystemRestoreImagesByTarget", arrayOf({"r13"}));
    plist.set("SupportedProductTypes", dictOf({{"Corvid2,1", true}}));
  });
  d.editPlist("Restore/BuildManifest.plist", [](Value& manifest) {
    manifest.set("BuildIdentities", arrayOf({"r13ap", dictOf({{"Info", "x"}}),
                                             dictOf({{"Info", dictOf({{"DeviceClass", 13}})}, {"Manifest", 1}})}));
  });
  write(d);
  // No identity serves the personalized path; the unpersonalized one finds
  // its files on disk and only warns about the tables.
  EXPECT_EQ(engine(arrayOf({"r13"}), arrayOf({"ss"}), personalized())->strip(), 1);
  EXPECT_EQ(engine(arrayOf({"r13"}), arrayOf({"ss"}), unpersonalized())->strip(), 0);
  EXPECT_TRUE(logged("XXX ERROR: BuildManifest.plist BuildIdentity r13ap \"Factory - Shipping Settings\" not found."));
  EXPECT_TRUE(logged("!!! WARNING: Restore.plist RamDisksByPlatform has no reference to xr2120x."));
}

TEST_F(Stripper2Test, InvisiblesLeaveTheMergedListWithEverythingUnderThem) {
  BundleDescription d = synth::legacyBundle(false);
  d.addFile("Debug/.svn/entries");
  write(d);
  auto e = engine(arrayOf({"r13"}), arrayOf({"ss"}), dictOf({{"keepDebug", true}, {"noCookie", true}}));
  ASSERT_EQ(e->strip(), 0);
  EXPECT_EQ(e->strippedManifest(), arrayOf({"038-9003-001.dmg", "Debug", "Debug/r13ap.symbols", "RestoreTools.dmg"}));
  EXPECT_TRUE(logged("--- invisibles scrub 3 items."));
  EXPECT_FALSE(e->modifiedFiles().contains("VelmarBSCookie.plist"));
}

}  // namespace
}  // namespace velmar::testing

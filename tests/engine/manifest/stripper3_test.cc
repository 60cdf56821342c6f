// Creation, analysis, pre-analysis, the identity index and whole strips of
// the manifest engine, on synthetic bundles.

#include "engine/manifest/stripper3.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "engine/collection_extras.h"
#include "tests/engine/manifest/engine_fixture.h"

namespace velmar::testing {
namespace {

using Names = std::vector<std::string>;

Names sorted(Names v) {
  std::sort(v.begin(), v.end());
  return v;
}

class Stripper3Test : public EngineTest {};

// ---- creation and analysis ------------------------------------------------------

TEST_F(Stripper3Test, CreationRecordsTheRequestNarrowsProductsAndCachesShallowListings) {
  write();
  auto e = engine(Value(), arrayOf({"ss"}));
  EXPECT_EQ(e->stripInfo(), dictOf({{"BundleRoot", root()}, {"FactoryVariants", arrayOf({"ss"})}}));
  EXPECT_EQ(engine(arrayOf({}))->stripInfo().get("Products"), arrayOf({}));
  EXPECT_EQ(Stripper3::knownProducts(), (Names{"r11", "r13"}));
  // A product the table knows keeps the table's record.
  EXPECT_FALSE(Stripper3::tables().knownProducts.get("r13").contains("noLLDiagsExtras"));
  // Shallow listings are read once; deep ones each time.
  EXPECT_EQ(sorted(e->submanifestStartingAt("Debug", false)),
            (Names{"Debug/.DS_Store", "Debug/r11ap.symbols", "Debug/r13ap.symbols"}));
  writeFile(root() + "/Debug/late.txt");
  EXPECT_EQ(e->submanifestStartingAt("Debug", false).size(), 3u);
  EXPECT_EQ(e->submanifestStartingAt("Debug", true).size(), 4u);
}

TEST_F(Stripper3Test, ProductsComeFromDeviceClassesTheManifestAndMapShare) {
  // Upper-case suffixes are stripped too; a class with neither suffix is its
  // own product; r31 is only in the map, r21 only in the manifest.
  BundleDescription d = synth::sampleBundle();
  d.maps.deviceMap.push_back({"R88AP", "xr2160x", "Lumen8,1", 9});
  d.maps.deviceMap.push_back({"x55", "xr2160x", "Lumen5,1", 10});
  d.maps.deviceMap.push_back({"r31ap", "xr2130x", "Tabula1,1", 12});
  for (const char* dc : {"R88AP", "x55", "r21ap"})
    d.identities.push_back({dc, "Factory - Shipping Settings", "", Value(), {}});
  write(d);
  auto e = engine();
  EXPECT_EQ(Stripper3::tables().knownProducts.get("R88"),
            dictOf({{"processor", "xr2160x"}, {"model", "Lumen8,1"}, {"noLLDiagsExtras", false},
                    {"BasebandIsPersonalized", true}}));
  EXPECT_EQ(Stripper3::knownProducts(), (Names{"r11", "r13", "R88", "x55"}));
  EXPECT_EQ(sorted(e->validProducts().strings()), (Names{"R88", "r11", "r13", "x55"}));
}

TEST_F(Stripper3Test, WithoutAManifestEveryDeviceClassOfTheMapCountsButNothingStrips) {
  BundleDescription d = synth::sampleBundle();
  d.maps.deviceMap.push_back({"r31ap", "xr2130x", "Tabula1,1", 12});
  d.omitPath(synth::kBuildManifestPath);
  write(d);
  auto e = engine(arrayOf({"r13"}));
  EXPECT_EQ(takeLog(), "XXX ERROR: BuildManifest.plist fail to read.\n");
  EXPECT_EQ(Stripper3::knownProducts(), (Names{"r11", "r13", "r31"}));
  EXPECT_TRUE(e->validProducts().isNull());
  EXPECT_TRUE(e->validFactoryVariants().isNull());
  EXPECT_EQ(e->strip(), 1);
  const std::string cannot = "XXX ERROR: BuildManifest.plist cannot be read.\n";
  EXPECT_EQ(logText(), cannot + cannot + cannot);
}

TEST_F(Stripper3Test, MissingDeviceMapLeavesTheTableAsBuiltIn) {
  BundleDescription d = synth::sampleBundle();
  d.omitPath(synth::kCapitalDeviceMapPath);
  d.omitPath(synth::kDeviceMapPlistPath);  // one file on case-insensitive disks
  write(d);
  auto e = engine();
  EXPECT_TRUE(logged("XXX ERROR: Device_map.plist cannot be read."));
  EXPECT_EQ(Stripper3::knownProducts().size(), 7u);
  EXPECT_EQ(sorted(e->validProducts().strings()), (Names{"r11", "r13"}));
}

TEST_F(Stripper3Test, UnreadableRestorePlistFailsTheStrip) {
  BundleDescription d = synth::sampleBundle();
  d.omitPath(synth::kRestorePlistPath);
  write(d);
  auto e = engine(arrayOf({"r13"}), arrayOf({"ss"}));
  EXPECT_EQ(e->strip(), 1);
  EXPECT_EQ(logText(), "XXX ERROR: Restore.plist cannot be read.\n");
  EXPECT_EQ(e->workList().count(), 0u);
}

TEST_F(Stripper3Test, ValidStationsAreThoseEveryDeviceClassOffers) {
  write();
  auto stations = [&](Value options) {
    return niceDescription(Value::stringArray(
        sorted(engine(arrayOf({"r13"}), Value(), options)->validFactoryVariants().strings())));
  };
  EXPECT_EQ(stations(Value()), "cti, dfu, mac-swdl, nandnuker, recovery, ss, support, swdl");
  EXPECT_EQ(stations(dictOf({{"keepDevFirmware", true}})), "nandnuker, swdl");
  // No device classes at all: every station of the table.
  EXPECT_EQ(stations(dictOf({{"stripAPFirmware", "YES"}})),
            niceDescription(Value::stringArray(sorted(Stripper3::knownFactoryVariants()))));
  // A template station stands for the variants the caller lists.
  EXPECT_EQ(stations(dictOf({{"swdl-tmpl", arrayOf({"Factory - Support"})}, {"ss-tmpl", arrayOf({"Nope"})}})),
            "cti, dfu, mac-swdl, nandnuker, recovery, ss, support, swdl, swdl-tmpl");
}

// ---- pre-analysis and the work list -------------------------------------------

TEST_F(Stripper3Test, UnknownNamesAreRefusedSortedAndJoined) {
  write();
  auto e = engine(arrayOf({"r99", "r13", "r21"}));
  EXPECT_EQ(e->strip(), 1);
  EXPECT_EQ(takeLog(), "XXX ERROR: products r21, r99 not found.\n");
  EXPECT_EQ(e->workList().count(), 0u);
  EXPECT_EQ(engine(arrayOf({"r13"}), arrayOf({"ss", "zz", "dfu", "bogus"}))->strip(), 1);
  EXPECT_EQ(logText(), "XXX ERROR: variants bogus, zz not found.\n");
}

TEST_F(Stripper3Test, OneProductOneStationMakesSixEntries) {
  write();
  auto e = engine(arrayOf({"r13"}), arrayOf({"swdl"}));
  ASSERT_EQ(e->preanalyzeRequest(), Status(0));
  std::string titles;
  for (const Value& entry : e->workList().arr())
    titles += entry.get("workSelector").str() + " " + entry.get("workName").str() + "\n";
  EXPECT_EQ(titles,
            "buildFilelistFromBuildManifest: Strip Restore and BuildManifest.plist for r13 swdl.\n"
            "stripBuildManifest: Finish stripping BuildManifest.plist\n"
            "stripRestorePlist: Cross check and strip Restore.plist\n"
            "stripCommonWork: Strip support files\n"
            "stripInvisibles: Strip invisibles\n"
            "leaveCookie: Leaving cookie for Santa\n");
  Value first = e->workList().arr().front(), last = e->workList().arr().back();
  for (const char* key : {"workSelector", "workName"}) first.remove(key), last.remove(key);
  EXPECT_EQ(first, dictOf({{"workProduct", "r13"}, {"workDeviceClasses", arrayOf({"r13ap"})},
                           {"workModel", "Corvid2,1"}, {"workProcessorID", "xr2120x"},
                           {"workVariant", "swdl"}}));
  EXPECT_EQ(last, dictOf({{"workAllProducts", setOf({"r13"})}, {"workAllModels", setOf({"Corvid2,1"})},
                          {"workAllDeviceClasses", setOf({"r13ap"})},
                          {"workAllProcessorIDs", setOf({"xr2120x"})},
                          {"workAllPersonalizationVariants", setOf({"Factory - Software Download"})}}));
  // Development firmware adds the "dev" class after the "ap" one.
  e = engine(arrayOf({"r13"}), arrayOf({"swdl"}), dictOf({{"keepDevFirmware", true}}));
  EXPECT_EQ(entryFor(*e, "buildFilelistFromBuildManifest:").get("workDeviceClasses"),
            arrayOf({"r13ap", "r13dev"}));
}

TEST_F(Stripper3Test, EmptyRequestCoversEveryProductWithTheFirstProductsStations) {
  write();
  auto e = engine(Value(), Value(), dictOf({{"useRestorePlistInsteadOfBuildManifest", "yes"}}));
  ASSERT_EQ(e->preanalyzeRequest(), Status(0));
  Names r11, r13;
  for (const Value& entry : e->workList().arr())
    if (entry.get("workSelector").str() == "buildFilelistFromBuildManifest:")
      (entry.get("workProduct").str() == "r11" ? r11 : r13).push_back(entry.get("workVariant").str());
  // The stations are r11's, the first valid product's: r13 gets 5, not its own 8.
  EXPECT_EQ(r11, r13);
  EXPECT_EQ(r13.size(), 5u);
  // Each product's stations are followed by its unpersonalized entry.
  EXPECT_EQ(e->workList().arr()[11].get("workName").str(),
            "Strip Restore for unpersonalized install for r13.");
  EXPECT_EQ(e->workList().arr().back().get("workAllProducts"), setOf({}));
}

// ---- whole strips ----------------------------------------------------------------

TEST_F(Stripper3Test, StripOfTheSampleForR13AtShippingSettings) {
  write();
  auto e = engine(arrayOf({"r13"}), arrayOf({"ss"}), dictOf({{"keepDebug", true}}));
  ASSERT_EQ(e->strip(), 0) << logText();
  EXPECT_EQ(
      niceDescription(e->strippedManifest()),
      "038-9003-001.dmg, Debug/r11ap.symbols, Debug/r13ap.symbols, FactoryDiskImage.dmg, "
      "FactoryDiskImage.dmg.signature, Restore, Restore/018-2120-001.dmg, Restore/038-1300-001.dmg, "
      "Restore/Diags, Restore/Diags/diag-r13.img, Restore/Firmware, Restore/Firmware/all_flash, "
      "Restore/Firmware/all_flash/all_flash.r13ap.production, "
      "Restore/Firmware/all_flash/all_flash.r13ap.production/bootloader.r13ap.img, "
      "Restore/Firmware/all_flash/all_flash.r13ap.production/manifest, "
      "Restore/Firmware/BBX2_3.04.25.Release.bbfw, Restore/Firmware/dfu, "
      "Restore/Firmware/dfu/stage1.r13ap.RELEASE.dfu, Restore/kernelcache.release.xr2120x, RestoreTools.dmg");
  Value modified = e->modifiedFiles();
  EXPECT_EQ(niceDescription(Value::stringArray(sorted(modified.dict().keys()))),
            "Restore/BuildManifest.plist, Restore/C2RestoreRamDisk.dmg, Restore/Firmware/device_map.plist, "
            "Restore/Firmware/device_map.txt, Restore/Firmware/platform_keys.plist, "
            "Restore/Firmware/target_map.txt, Restore/R13UserOS.dmg, Restore/Restore.plist, "
            "Restore/kernelcache.release.r13, VelmarBSCookie.plist");
  EXPECT_EQ(modified.get("Restore/R13UserOS.dmg"), Value::makeData("038-1300-001.dmg"));
  EXPECT_EQ(modified.get("Restore/BuildManifest.plist").get("BuildIdentities").count(), 1u);
  EXPECT_EQ(modified.get("Restore/Firmware/device_map.txt"), Value("0x02 xr2120x Corvid2,1 r13 r13ap\n"));
  EXPECT_EQ(modified.get("Restore/Firmware/target_map.txt"), Value("r13 xr2120x Corvid2,1\n"));
  for (const char* line :
       {">>> ==========  6/ 6 Leaving cookie for Santa ==========", "+++ Debug folder found 3 items.",
        "+++ RestoreTools found 038-9003-001.dmg.", "--- invisibles scrub 1 items."})
    EXPECT_TRUE(logged(line)) << line;
}

TEST_F(Stripper3Test, MissingIdentityStopsTheListAfterItsBanner) {
  // The macOS station is built on the software-download identity, which is gone.
  BundleDescription d = synth::sampleBundle();
  std::erase_if(d.identities, [](const synth::BuildIdentity& id) {
    return id.deviceClass == "r13ap" && id.variant == "Factory - Software Download";
  });
  write(d);
  auto e = engine(arrayOf({"r13"}), arrayOf({"mac-swdl"}));
  EXPECT_EQ(e->strip(), 1);
  EXPECT_EQ(logText(),
            ">>> Work List\n>>> ==========  1/ 6 Strip Restore and BuildManifest.plist for r13 mac-swdl. "
            "==========\nXXX ERROR: BuildIdentity r13ap (Factory - Software Download) not found.\n");
  EXPECT_EQ(e->modifiedFiles().count(), 0u);
}

// ---- identity index and services -----------------------------------------------

TEST_F(Stripper3Test, IdentityIndexKeepsDuplicatesAndTheRewriteSortsIgnoringCase) {
  BundleDescription d = synth::sampleBundle();
  synth::BuildIdentity twin = *d.findIdentity("r13ap", "Factory - Shipping Settings");
  twin.manifest.resize(1);
  d.identities.push_back(twin);
  write(d);
  auto e = engine();
  EXPECT_TRUE(e->originalBuildIdentities().isNull());  // built on the manifest's first load
  e->validProducts();
  const Value ss = e->originalBuildIdentities().get("r13ap").get("Factory - Shipping Settings");
  ASSERT_EQ(ss.count(), 2u);
  EXPECT_EQ(ss.arr()[1].get("Manifest").count(), 1u);
  EXPECT_EQ(e->referenceVariants().get("r13ap").get("macOS Factory - Software Download"),
            arrayOf({"Factory - Software Download"}));

  auto id = [](const char* name) { return arrayOf({dictOf({{"name", name}})}); };
  e->strippedBuildIdentities() =
      dictOf({{"r13dev", dictOf({{"zeta", id("B-zeta")}, {"Alpha", id("B-Alpha")}})},
              {"R13AP", dictOf({{"x", id("A-x")}})}});
  Value entry = dictOf({{"workAllModels", setOf({"Corvid1,1", "Nope9,9"})}});
  EXPECT_EQ(e->stripBuildManifest(entry), 0);
  Value manifest = e->modifiedFilelist().get("Restore/BuildManifest.plist");
  EXPECT_EQ(
      manifest.get("BuildIdentities"),
      arrayOf({dictOf({{"name", "A-x"}}), dictOf({{"name", "B-Alpha"}}), dictOf({{"name", "B-zeta"}})}));
  EXPECT_EQ(manifest.get("SupportedProductTypes"), arrayOf({"Corvid1,1"}));
  EXPECT_EQ(manifest.get("ProductVersion"), Value("7.0"));
  EXPECT_EQ(e->buildManifest().entries().get("SupportedProductTypes").count(), 2u);  // untouched
}

}  // namespace
}  // namespace velmar::testing

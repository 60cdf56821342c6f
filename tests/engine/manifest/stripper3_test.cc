// Creation, analysis, the identity index and the work list of the manifest
// engine, on synthetic bundles.

#include "engine/manifest/stripper3.h"

#include <gtest/gtest.h>

#include <fstream>

#include "engine/log_object.h"
#include "engine/plist_io.h"
#include "synth/bundle_builder.h"
#include "synth/sample_bundles.h"
#include "synth/temp_dir.h"

namespace velmar {
namespace {

using synth::BundleDescription;

Value strings(std::initializer_list<const char*> items) {
  Value a = Value::makeArray();
  for (const char* s : items) a.append(s);
  return a;
}

std::vector<std::string> sorted(std::vector<std::string> v) {
  std::sort(v.begin(), v.end());
  return v;
}

class Stripper3Test : public ::testing::Test {
 protected:
  void SetUp() override {
    Stripper3::tables().knownProducts = builtInKnownProducts();
    LogObject::sharedLogger().setHistoricalLog("");
  }
  void TearDown() override { Stripper3::tables().knownProducts = builtInKnownProducts(); }

  std::unique_ptr<Stripper3> engineFor(const BundleDescription& d, Value products = Value(),
                                       Value variants = Value(), Value options = Value()) {
    std::string error;
    EXPECT_TRUE(synth::writeBundle(d, root(), &error)) << error;
    return Stripper3::stripperForPath(root(), products, variants, options);
  }
  std::string root() const { return dir_ / "Bundle"; }
  const std::string& log() { return LogObject::sharedLogger().historicalLog(); }
  bool logged(const std::string& line) { return log().find(line + "\n") != std::string::npos; }

  synth::TempDir dir_;
};

// ---- creation and analysis ----------------------------------------------------

TEST_F(Stripper3Test, CreationRecordsTheRequestAndNarrowsKnownProducts) {
  auto engine = engineFor(synth::sampleBundle(), Value(), strings({"ss"}), Value());
  EXPECT_EQ(engine->stripInfo().get("BundleRoot").str(), root());
  EXPECT_FALSE(engine->stripInfo().contains("Products"));
  EXPECT_EQ(engine->stripInfo().get("FactoryVariants"), strings({"ss"}));
  EXPECT_EQ(Stripper3::knownProducts(), (std::vector<std::string>{"r11", "r13"}));
  // Known products keep the table's own record.
  EXPECT_FALSE(Stripper3::tables().knownProducts.get("r13").contains("noLLDiagsExtras"));
  EXPECT_FALSE(engine->buildManifest().loaded());

  auto empty = Stripper3::stripperForPath(root(), Value::makeArray(), Value(), Value());
  EXPECT_EQ(empty->stripInfo().get("Products"), Value::makeArray());
}

TEST_F(Stripper3Test, BundleProductsUnknownToTheTableGetABundleRecord) {
  BundleDescription d = synth::sampleBundle();
  synth::ProductRecipe p = synth::r13Recipe();
  p.board = "r77";
  p.model = "Corvid9,1";
  p.partBase = "7700";
  p.basebandFile.clear();
  synth::addProduct(d, p);
  // Upper-case suffixes are device classes too.
  d.maps.deviceMap.push_back({"R88AP", "xr2160x", "Lumen8,1", 9});
  d.identities.push_back({"R88AP", "Factory - Shipping Settings", "", Value(), {}});
  auto engine = engineFor(d);
  Value r77 = Stripper3::tables().knownProducts.get("r77");
  EXPECT_EQ(r77.get("processor").str(), "xr2120x");
  EXPECT_EQ(r77.get("model").str(), "Corvid9,1");
  EXPECT_EQ(r77.get("noLLDiagsExtras"), Value(false));
  EXPECT_EQ(r77.get("BasebandIsPersonalized"), Value(true));
  EXPECT_EQ(Stripper3::knownProducts(), (std::vector<std::string>{"r11", "r13", "r77", "R88"}));
  EXPECT_EQ(sorted(engine->validProducts().strings()),
            (std::vector<std::string>{"R88", "r11", "r13", "r77"}));
}

TEST_F(Stripper3Test, DeviceClassesTheManifestNeverMentionsAreLeftOut) {
  BundleDescription d = synth::sampleBundle();
  d.maps.deviceMap.push_back({"r31ap", "xr2130x", "Tabula1,1", 12});
  engineFor(d);
  EXPECT_EQ(Stripper3::knownProducts(), (std::vector<std::string>{"r11", "r13"}));
}

TEST_F(Stripper3Test, WithoutAManifestEveryDeviceClassOfTheMapCounts) {
  BundleDescription d = synth::sampleBundle();
  d.maps.deviceMap.push_back({"r31ap", "xr2130x", "Tabula1,1", 12});
  d.omitPath(synth::kBuildManifestPath);
  auto engine = engineFor(d, strings({"r13"}));
  EXPECT_TRUE(logged("XXX ERROR: BuildManifest.plist fail to read."));
  EXPECT_EQ(Stripper3::knownProducts(), (std::vector<std::string>{"r11", "r13", "r31"}));
  EXPECT_TRUE(engine->validProducts().isNull());
  EXPECT_TRUE(engine->validFactoryVariants().isNull());
  EXPECT_TRUE(logged("XXX ERROR: BuildManifest.plist cannot be read."));
  EXPECT_EQ(engine->strip(), 1);
}

TEST_F(Stripper3Test, MissingDeviceMapLeavesTheTableAsBuiltIn) {
  BundleDescription d = synth::sampleBundle();
  d.omitPath(synth::kCapitalDeviceMapPath);
  d.omitPath(synth::kDeviceMapPlistPath);  // one file on case-insensitive disks
  auto engine = engineFor(d);
  EXPECT_TRUE(logged("XXX ERROR: Device_map.plist cannot be read."));
  EXPECT_EQ(Stripper3::knownProducts().size(), 7u);
  // Valid products are still only those the manifest builds for.
  EXPECT_EQ(sorted(engine->validProducts().strings()), (std::vector<std::string>{"r11", "r13"}));
}

TEST_F(Stripper3Test, UnreadableRestorePlistFailsTheStrip) {
  BundleDescription d = synth::sampleBundle();
  d.omitPath(synth::kRestorePlistPath);
  auto engine = engineFor(d, strings({"r13"}), strings({"ss"}));
  EXPECT_EQ(engine->strip(), 1);
  EXPECT_TRUE(logged("XXX ERROR: Restore.plist cannot be read."));
  EXPECT_EQ(engine->workList().count(), 0u);
}

TEST_F(Stripper3Test, ValidStationsAreThoseEveryDeviceClassOffers) {
  auto engine = engineFor(synth::sampleBundle(), strings({"r13"}));
  EXPECT_EQ(sorted(engine->validFactoryVariants().strings()),
            (std::vector<std::string>{"cti", "dfu", "mac-swdl", "nandnuker", "recovery", "ss",
                                      "support", "swdl"}));
  // Development firmware too: only what r13dev offers as well.
  Value options = Value::makeDict();
  options.set("keepDevFirmware", true);
  engine = Stripper3::stripperForPath(root(), strings({"r13"}), Value(), options);
  EXPECT_EQ(sorted(engine->validFactoryVariants().strings()),
            (std::vector<std::string>{"nandnuker", "swdl"}));
  // No device classes at all: every station of the table.
  options.set("keepDevFirmware", false);
  options.set("stripAPFirmware", "YES");
  engine = Stripper3::stripperForPath(root(), strings({"r13"}), Value(), options);
  EXPECT_EQ(engine->validFactoryVariants().count(), 28u);
}

TEST_F(Stripper3Test, TemplateStationsStandForTheVariantsTheCallerLists) {
  Value options = Value::makeDict();
  options.set("swdl-tmpl", strings({"Factory - Support"}));
  options.set("ss-tmpl", strings({"Not In This Bundle"}));
  auto engine = engineFor(synth::sampleBundle(), strings({"r13"}), Value(), options);
  std::vector<std::string> valid = engine->validFactoryVariants().strings();
  EXPECT_NE(std::find(valid.begin(), valid.end(), "swdl-tmpl"), valid.end());
  EXPECT_EQ(std::find(valid.begin(), valid.end(), "ss-tmpl"), valid.end());
  EXPECT_TRUE(engine->factoryVariantsForDeviceClasses(Value()).isNull());
  EXPECT_EQ(engine->factoryVariantsForDeviceClasses(strings({"r99ap"})).count(), 0u);
}

// ---- pre-analysis and the work list -------------------------------------------

TEST_F(Stripper3Test, UnknownNamesAreRefusedSortedAndJoined) {
  auto engine = engineFor(synth::sampleBundle(), strings({"r99", "r13", "r21"}));
  EXPECT_EQ(engine->strip(), 1);
  EXPECT_TRUE(logged("XXX ERROR: products r21, r99 not found."));
  EXPECT_EQ(engine->workList().count(), 0u);

  engine = Stripper3::stripperForPath(root(), strings({"r13"}), strings({"ss", "zz", "dfu", "bogus"}),
                                      Value());
  EXPECT_EQ(engine->strip(), 1);
  EXPECT_TRUE(logged("XXX ERROR: variants bogus, zz not found."));
}

TEST_F(Stripper3Test, OneProductOneStationMakesSixEntries) {
  auto engine = engineFor(synth::sampleBundle(), strings({"r13"}), strings({"swdl"}));
  ASSERT_TRUE(engine->buildManifest().load());
  ASSERT_TRUE(engine->restorePlist().load());
  ASSERT_EQ(engine->preanalyzeRequest(), Status(0));
  const Array& list = engine->workList().arr();
  ASSERT_EQ(list.size(), 6u);
  const Value& first = list[0];
  EXPECT_EQ(first.get("workSelector").str(), "buildFilelistFromBuildManifest:");
  EXPECT_EQ(first.get("workName").str(), "Strip Restore and BuildManifest.plist for r13 swdl.");
  EXPECT_EQ(first.get("workDeviceClasses"), strings({"r13ap"}));
  EXPECT_EQ(first.get("workModel").str(), "Corvid2,1");
  EXPECT_EQ(first.get("workProcessorID").str(), "xr2120x");
  EXPECT_EQ(first.get("workVariant").str(), "swdl");

  const char* closing[][2] = {{"stripBuildManifest:", "Finish stripping BuildManifest.plist"},
                              {"stripRestorePlist:", "Cross check and strip Restore.plist"},
                              {"stripCommonWork:", "Strip support files"},
                              {"stripInvisibles:", "Strip invisibles"},
                              {"leaveCookie:", "Leaving cookie for Santa"}};
  for (int i = 0; i < 5; ++i) {
    const Value& e = list[i + 1];
    EXPECT_EQ(e.get("workSelector").str(), closing[i][0]);
    EXPECT_EQ(e.get("workName").str(), closing[i][1]);
    EXPECT_EQ(e.get("workAllProducts"), Value::makeSet({"r13"}));
    EXPECT_EQ(e.get("workAllDeviceClasses"), Value::makeSet({"r13ap"}));
    EXPECT_EQ(e.get("workAllModels"), Value::makeSet({"Corvid2,1"}));
    EXPECT_EQ(e.get("workAllProcessorIDs"), Value::makeSet({"xr2120x"}));
    EXPECT_EQ(e.get("workAllPersonalizationVariants"),
              Value::makeSet({"Factory - Software Download"}));
  }
  EXPECT_TRUE(logged(">>> Work List"));
}

TEST_F(Stripper3Test, EmptyRequestCoversEveryProductWithTheFirstProductsStations) {
  Value options = Value::makeDict();
  options.set("checkUnpersonalized", false);
  options.set("useRestorePlistInsteadOfBuildManifest", "yes");
  auto engine = engineFor(synth::sampleBundle(), Value(), Value(), options);
  ASSERT_TRUE(engine->buildManifest().load());
  ASSERT_EQ(engine->preanalyzeRequest(), Status(0));
  std::vector<std::string> names;
  for (const Value& e : engine->workList().arr()) names.push_back(e.get("workName").str());
  // Products come in validProducts order; r11 lacks stations r13 offers, and
  // still gets them.
  size_t r11Steps = std::count_if(names.begin(), names.end(), [](const std::string& n) {
    return n.find("BuildManifest.plist for r11 ") != std::string::npos;
  });
  size_t r13Steps = std::count_if(names.begin(), names.end(), [](const std::string& n) {
    return n.find("BuildManifest.plist for r13 ") != std::string::npos;
  });
  EXPECT_EQ(r11Steps, r13Steps);
  EXPECT_NE(std::find(names.begin(), names.end(), "Strip Restore for unpersonalized install for r13."),
            names.end());
  EXPECT_EQ(engine->workList().arr().back().get("workAllProducts"), Value::makeSet());

  Value unpersonalized;
  for (const Value& e : engine->workList().arr())
    if (e.get("workSelector").str() == "updateFilelistForUnpersonalizedInstall:") unpersonalized = e;
  ASSERT_FALSE(unpersonalized.isNull());
  EXPECT_TRUE(unpersonalized.get("workKernelCachesList").isArray());
  EXPECT_FALSE(unpersonalized.contains("workVariant"));
}

// ---- whole strips ----------------------------------------------------------------

TEST_F(Stripper3Test, StripOfTheSampleForR13AtShippingSettings) {
  auto engine = engineFor(synth::sampleBundle(), strings({"r13"}), strings({"ss"}));
  ASSERT_EQ(engine->strip(), 0) << log();
  EXPECT_EQ(engine->strippedManifest().strings(),
            (std::vector<std::string>{
                "038-9003-001.dmg", "FactoryDiskImage.dmg", "FactoryDiskImage.dmg.signature",
                "Restore", "Restore/018-2120-001.dmg", "Restore/038-1300-001.dmg", "Restore/Diags",
                "Restore/Diags/diag-r13.img", "Restore/Firmware", "Restore/Firmware/all_flash",
                "Restore/Firmware/all_flash/all_flash.r13ap.production",
                "Restore/Firmware/all_flash/all_flash.r13ap.production/bootloader.r13ap.img",
                "Restore/Firmware/all_flash/all_flash.r13ap.production/manifest",
                "Restore/Firmware/BBX2_3.04.25.Release.bbfw", "Restore/Firmware/dfu",
                "Restore/Firmware/dfu/stage1.r13ap.RELEASE.dfu", "Restore/kernelcache.release.xr2120x",
                "RestoreTools.dmg"}));
  Value modified = engine->modifiedFiles();
  EXPECT_EQ(sorted(modified.dict().keys()),
            (std::vector<std::string>{"Restore/BuildManifest.plist", "Restore/C2RestoreRamDisk.dmg",
                                      "Restore/Firmware/device_map.plist", "Restore/Firmware/device_map.txt",
                                      "Restore/Firmware/platform_keys.plist",
                                      "Restore/Firmware/target_map.txt", "Restore/R13UserOS.dmg",
                                      "Restore/Restore.plist", "Restore/kernelcache.release.r13",
                                      "VelmarBSCookie.plist"}));
  EXPECT_EQ(modified.get("Restore/R13UserOS.dmg"), Value::makeData("038-1300-001.dmg"));
  EXPECT_EQ(modified.get("Restore/BuildManifest.plist").get("BuildIdentities").count(), 1u);
  EXPECT_TRUE(logged(">>> ==========  6/ 6 Leaving cookie for Santa =========="));
}

TEST_F(Stripper3Test, MissingIdentityStopsTheListAfterItsBanner) {
  // The macOS station is built on the software-download identity, which is gone.
  BundleDescription d = synth::sampleBundle();
  std::erase_if(d.identities, [](const synth::BuildIdentity& id) {
    return id.deviceClass == "r13ap" && id.variant == "Factory - Software Download";
  });
  auto engine = engineFor(d, strings({"r13"}), strings({"mac-swdl"}));
  EXPECT_EQ(engine->strip(), 1);
  EXPECT_TRUE(logged(">>> ==========  1/ 6 Strip Restore and BuildManifest.plist for r13 mac-swdl. =========="));
  EXPECT_TRUE(logged("XXX ERROR: BuildIdentity r13ap (Factory - Software Download) not found."));
  EXPECT_EQ(log().find(" 2/ 6"), std::string::npos);
  EXPECT_EQ(engine->modifiedFiles().count(), 0u);
}

// ---- identity index and services -----------------------------------------------

TEST_F(Stripper3Test, IdentityIndexIsBuiltOnTheFirstLoadAndKeepsDuplicates) {
  BundleDescription d = synth::sampleBundle();
  synth::BuildIdentity twin = *d.findIdentity("r13ap", "Factory - Shipping Settings");
  twin.manifest.resize(1);
  d.identities.push_back(twin);
  auto engine = engineFor(d);
  EXPECT_TRUE(engine->originalBuildIdentities().isNull());
  engine->validProducts();
  Value ss = engine->originalBuildIdentities().valueForKeyPath("r13ap");
  EXPECT_EQ(ss.get("Factory - Shipping Settings").count(), 2u);
  EXPECT_EQ(engine->referenceVariants().valueForKeyPath("r13ap").get("macOS Factory - Software Download"),
            strings({"Factory - Software Download"}));
}

TEST_F(Stripper3Test, FlattenedIdentitiesSortByDeviceClassThenVariantIgnoringCase) {
  auto engine = engineFor(synth::sampleBundle());
  Value index = Value::makeDict();
  auto identity = [](const char* name) {
    Value id = Value::makeDict();
    id.set("name", name);
    return id;
  };
  Value b = Value::makeDict();
  b.set("zeta", Value::makeArray({identity("B-zeta")}));
  b.set("Alpha", Value::makeArray({identity("B-Alpha-1"), identity("B-Alpha-2")}));
  index.set("r13dev", b);
  Value a = Value::makeDict();
  a.set("x", Value::makeArray({identity("A-x")}));
  index.set("R13AP", a);
  std::vector<std::string> order;
  for (const Value& id : engine->flattenBuildIdentities(index).arr()) order.push_back(id.get("name").str());
  EXPECT_EQ(order, (std::vector<std::string>{"A-x", "B-Alpha-1", "B-Alpha-2", "B-zeta"}));
}

TEST_F(Stripper3Test, StrippedManifestKeepsOnlyRequestedModels) {
  auto engine = engineFor(synth::sampleBundle());
  ASSERT_TRUE(engine->buildManifest().load());
  Value entry = Value::makeDict();
  entry.set("workAllModels", Value::makeSet({"Corvid1,1", "Nope9,9"}));
  EXPECT_EQ(engine->stripBuildManifest(entry), 0);
  Value manifest = engine->modifiedFilelist().get("Restore/BuildManifest.plist");
  EXPECT_EQ(manifest.get("SupportedProductTypes"), strings({"Corvid1,1"}));
  EXPECT_EQ(manifest.get("BuildIdentities"), Value::makeArray());
  EXPECT_EQ(manifest.get("ProductVersion"), engine->buildManifest().entries().get("ProductVersion"));
  // The loaded manifest is untouched.
  EXPECT_EQ(engine->buildManifest().entries().get("SupportedProductTypes").count(), 2u);

  entry.set("workAllModels", Value::makeSet({"Lumen1,1"}));
  engine->stripBuildManifest(entry);
  EXPECT_EQ(engine->modifiedFilelist().valueForKeyPath("Restore/BuildManifest.plist").isNull(), true);
  EXPECT_EQ(engine->modifiedFilelist().get("Restore/BuildManifest.plist").get("SupportedProductTypes"),
            Value::makeArray());
}

TEST_F(Stripper3Test, ShallowListingsAreCachedDeepOnesAreNot) {
  auto engine = engineFor(synth::sampleBundle());
  std::vector<std::string> first = engine->submanifestStartingAt("Debug", false);
  EXPECT_EQ(sorted(first), (std::vector<std::string>{"Debug/.DS_Store", "Debug/r11ap.symbols",
                                                     "Debug/r13ap.symbols"}));
  std::ofstream(root() + "/Debug/late.txt") << "x";
  EXPECT_EQ(engine->submanifestStartingAt("Debug", false).size(), 3u);
  EXPECT_EQ(engine->submanifestStartingAt("Debug", true).size(), 4u);
  EXPECT_TRUE(engine->submanifestStartingAt("NoSuchFolder", false).empty());
  EXPECT_FALSE(engine->shallowPathContentsCache().contains("NoSuchFolder"));
}

TEST_F(Stripper3Test, AddSubpathKeepsEveryAncestor) {
  auto engine = engineFor(synth::sampleBundle());
  Value keep = Value::makeSet();
  engine->addSubpath("Restore/Firmware/all_flash/x.img", keep);
  engine->addSubpath("", keep);
  EXPECT_EQ(keep, Value::makeSet({"Restore", "Restore/Firmware", "Restore/Firmware/all_flash",
                                  "Restore/Firmware/all_flash/x.img"}));
}

TEST_F(Stripper3Test, KeptPathsComeOutOnceInCaseInsensitiveOrder) {
  auto engine = engineFor(synth::sampleBundle());
  for (const char* p : {"Restore/a", "kernelcache", "Debug/x", "Restore/a"})
    engine->copiedFilelist().insert(Value(p));
  EXPECT_EQ(engine->strippedManifest(), strings({"Debug/x", "kernelcache", "Restore/a"}));
}

}  // namespace
}  // namespace velmar

#include "synth/bundle_builder.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "engine/builtin_tables.h"
#include "engine/collection_extras.h"
#include "engine/plist_io.h"
#include "synth/sample_bundles.h"

namespace velmar::synth {
namespace {

namespace fs = std::filesystem;

std::string readText(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::stringstream s(text);
  for (std::string line; std::getline(s, line);) out.push_back(line);
  return out;
}

std::vector<std::string> fields(const std::string& line) {
  std::vector<std::string> out;
  std::stringstream s(line);
  for (std::string f; std::getline(s, f, ' ');) out.push_back(f);
  return out;
}

// Every file a description's manifests name, as bundle-relative paths.
std::set<std::string> namedFiles(const BundleDescription& d) {
  std::set<std::string> out;
  for (const BuildIdentity& id : d.identities)
    for (const ManifestItem& item : id.manifest) out.insert("Restore/" + item.path);
  const RestoreTables& t = d.restore;
  for (const auto* rows : {&t.kernelCachesByPlatform, &t.kernelCachesByTarget, &t.ramDisksByPlatform,
                           &t.systemRestoreImagesByTarget})
    for (const TableRow& row : *rows) out.insert("Restore/" + row.file);
  for (const auto& [image, mb] : t.minimumSystemPartition) out.insert("Restore/" + image);
  return out;
}

std::map<std::string, BundleEntry> entriesByPath(const BundleDescription& d) {
  std::map<std::string, BundleEntry> out;
  for (BundleEntry& e : layoutBundle(d)) out[e.path] = std::move(e);
  return out;
}

// The engines trust a bundle to hold what its manifests name, and to list
// each flash image in its folder's manifest; a recipe slip would show up
// as engine failures far from the cause.
void expectSelfConsistent(const BundleDescription& d) {
  auto entries = entriesByPath(d);
  for (const std::string& path : namedFiles(d)) {
    auto it = entries.find(path);
    ASSERT_TRUE(it != entries.end()) << path;
    EXPECT_EQ(it->second.kind, BundleEntry::Kind::File) << path;
    if (path.find("Firmware/all_flash/all_flash.") == std::string::npos) continue;
    fs::path p(path);
    auto manifest = entries.find((p.parent_path() / "manifest").string());
    ASSERT_TRUE(manifest != entries.end()) << path;
    EXPECT_NE(manifest->second.contents.find(p.filename().string() + "\n"), std::string::npos) << path;
  }
  std::set<std::string> mapped;
  for (const DeviceMapEntry& e : d.maps.deviceMap) mapped.insert(e.deviceClass);
  for (const BuildIdentity& id : d.identities) EXPECT_TRUE(mapped.count(id.deviceClass)) << id.deviceClass;
}

class SynthBundleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string tmpl = (fs::temp_directory_path() / "velmar-synth-XXXXXX").string();
    ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
    base_ = tmpl;
    root_ = base_ / "Bundle";
  }
  void TearDown() override { fs::remove_all(base_); }

  void write(const BundleDescription& d) {
    std::string error;
    ASSERT_TRUE(writeBundle(d, root_.string(), &error)) << error;
  }
  Value plist(const std::string& rel) const { return readPropertyListFile((root_ / rel).string()); }

  fs::path base_;
  fs::path root_;
};

TEST_F(SynthBundleTest, SampleManifestsParseWithTheShapesTheEnginesRead) {
  write(sampleBundle());

  Value manifest = plist(kBuildManifestPath);
  const Array& ids = manifest.get("BuildIdentities").arr();
  ASSERT_EQ(ids.size(), sampleBundle().identities.size());
  std::set<std::string> classes;
  for (const Value& id : ids) {
    classes.insert(id.valueForKeyPath("Info.DeviceClass").str());
    EXPECT_TRUE(id.valueForKeyPath("Info.Variant").isString());
    EXPECT_TRUE(id.valueForKeyPath("Info.VariantContents.RestoreRamDisk").isString());
    EXPECT_TRUE(id.valueForKeyPath("Manifest.RestoreRamDisk.Info.Path").isString());
  }
  EXPECT_EQ(classes, (std::set<std::string>{"r11ap", "r11dev", "r13ap", "r13dev"}));
  EXPECT_EQ(manifest.get("SupportedProductTypes").strings(),
            (std::vector<std::string>{"Corvid2,1", "Corvid1,1"}));

  // The macOS software-download identity is built on the plain one.
  int references = 0;
  for (const Value& id : ids) {
    if (id.valueForKeyPath("Info.Variant").str() != "macOS Factory - Software Download") continue;
    EXPECT_EQ(id.valueForKeyPath("Info.MacOSVariant").str(), "Factory - Software Download");
    ++references;
  }
  EXPECT_EQ(references, 1);

  Value restore = plist(kRestorePlistPath);
  EXPECT_EQ(restore.valueForKeyPath("KernelCachesByPlatform.xr2120x.Release").str(),
            "kernelcache.release.xr2120x");
  EXPECT_EQ(restore.valueForKeyPath("KernelCachesByTarget.r11.Release").str(), "kernelcache.release.xr2100x");
  EXPECT_EQ(restore.valueForKeyPath("RamDisksByPlatform.xr2100x.User").str(), "018-2100-001.dmg");
  EXPECT_EQ(restore.valueForKeyPath("SystemRestoreImagesByTarget.r13.User").str(), "038-1300-001.dmg");
  EXPECT_EQ(restore.valueForKeyPath("SystemPartitionPadding.r11").intValue(), 256);
  EXPECT_TRUE(restore.get("MinimumSystemPartition").get("038-1100-002.dmg").isInteger());

  Value deviceMap = plist(kCapitalDeviceMapPath);
  EXPECT_EQ(deviceMap.valueForKeyPath("r13dev.Platform").str(), "xr2120x");
  EXPECT_EQ(deviceMap.valueForKeyPath("r11ap.ProductType").str(), "Corvid1,1");
  EXPECT_EQ(plist(kDeviceMapPlistPath), deviceMap);

  Value keys = plist(kPlatformKeysPath);
  std::set<std::string> platforms;
  for (const Value& k : keys.get("PlatformKeys").arr()) platforms.insert(k.get("PlatformName").str());
  EXPECT_EQ(platforms, (std::set<std::string>{"xr2100x", "xr2120x"}));
}

TEST_F(SynthBundleTest, SampleHoldsEveryFileItsManifestsName) {
  BundleDescription d = sampleBundle();
  expectSelfConsistent(d);
  write(d);
  for (const std::string& path : namedFiles(d)) EXPECT_TRUE(fs::is_regular_file(root_ / path)) << path;
  // Support items that are found by listing, not by name.
  for (const char* path : {"Restore/Diags/diag-r13.img", "Restore/Firmware/BBX2_3.04.25.Release.bbfw",
                           "Restore/Firmware/dfu/stage1.r13ap.RELEASE.dfu", "Debug/r13ap.symbols",
                           "Orrin RPKGs/r11_7A123.RPKG/Payload", "BundleImages/r13-front.png",
                           "UnencryptedImages/038-1300-001.dmg", "FactoryDiskImage.dmg",
                           "FactoryDiskImage.dmg.signature", ".DS_Store", "BundleImages/.BC_index"})
    EXPECT_TRUE(fs::is_regular_file(root_ / path)) << path;
}

TEST_F(SynthBundleTest, SampleMatchesTheBuiltInTables) {
  Value variants = builtInFactoryVariants();
  std::set<std::string> longNames;
  for (const auto& [station, row] : variants.dict()) longNames.insert(row.get("PersonalizationVariants").str());
  BundleDescription d = sampleBundle();
  for (const BuildIdentity& id : d.identities) EXPECT_TRUE(longNames.count(id.variant)) << id.variant;

  Value products = builtInKnownProducts();
  for (const DeviceMapEntry& e : d.maps.deviceMap) {
    std::string board = e.deviceClass.substr(0, 3);
    EXPECT_EQ(products.valueForKeyPath(board + ".processor").str(), e.platform) << e.deviceClass;
    EXPECT_EQ(products.valueForKeyPath(board + ".model").str(), e.productType) << e.deviceClass;
  }
  // Each ap identity's baseband file begins with its product's prefix.
  for (const BuildIdentity& id : d.identities) {
    for (const ManifestItem& item : id.manifest) {
      if (item.name != "BasebandFirmware") continue;
      std::string prefix = products.get(id.deviceClass.substr(0, 3)).get("BasebandFirmwarePrefix").arr()[0].str();
      EXPECT_TRUE(hasPrefix(item.path, "Firmware/" + prefix, Compare::Literal)) << item.path;
    }
  }
  Value processors = builtInProcessorMap();
  for (const std::string& p : largeBundle(13).maps.platformKeys) EXPECT_TRUE(processors.contains(p)) << p;
}

TEST_F(SynthBundleTest, MapFilesHoldOneRowPerDeviceClassAndBoard) {
  write(sampleBundle());
  std::string deviceText = readText(root_ / kDeviceMapTextPath);
  ASSERT_FALSE(deviceText.empty());
  EXPECT_EQ(deviceText.back(), '\n');
  std::vector<std::string> labels;
  for (const std::string& line : lines(deviceText)) {
    std::vector<std::string> f = fields(line);
    ASSERT_EQ(f.size(), 5u) << line;  // single blanks: no empty fields
    labels.push_back(f[4]);
    EXPECT_TRUE(hasPrefix(f[4], f[3], Compare::Literal)) << line;
  }
  EXPECT_EQ(labels, (std::vector<std::string>{"r13ap", "r13dev", "r11ap", "r11dev"}));

  std::vector<std::string> targets = lines(readText(root_ / kTargetMapTextPath));
  ASSERT_EQ(targets.size(), 2u);
  EXPECT_EQ(fields(targets[0])[0], "r13");
  EXPECT_EQ(fields(targets[1])[0], "r11");
}

TEST_F(SynthBundleTest, SupportLinksLeadToImagesBesideThem) {
  write(sampleBundle());
  const std::pair<const char*, const char*> links[] = {{"HomeDiagnostic.dmg", "038-9001-001.dmg"},
                                                       {"CorvidSDKInternalNonUI.dmg", "038-9002-001.dmg"},
                                                       {"RestoreTools.dmg", "038-9003-001.dmg"}};
  for (const auto& [link, target] : links) {
    ASSERT_TRUE(fs::is_symlink(root_ / link)) << link;
    EXPECT_EQ(fs::read_symlink(root_ / link).string(), target);
    EXPECT_TRUE(fs::is_regular_file(root_ / link)) << link;  // resolves
  }
  EXPECT_TRUE(fs::is_directory(root_ / "Orrin RPKGs/FullInternal_7A123.RPKG"));
}

TEST_F(SynthBundleTest, TweaksChangeOnlyWhatTheyName) {
  BundleDescription d = sampleBundle();
  d.omitPath("Restore/Firmware/dfu");
  d.omitPath("Debug");
  d.editPlist(kBuildManifestPath, [](Value& v) { v.remove("SupportedProductTypes"); });
  d.editPlist(kPlatformKeysPath, [](Value& v) { v = Value(); });
  d.editPlist("Restore/Extra.plist", [](Value& v) { v.set("Answer", 42); });
  d.findIdentity("r13ap", "Factory - Shipping Settings")->manifest.push_back({"Evil", "../../x", {}});
  d.support.factoryDiskImageSignature = false;
  d.folders.push_back("Restore/Empty");
  write(d);

  EXPECT_FALSE(fs::exists(root_ / "Restore/Firmware/dfu"));
  EXPECT_FALSE(fs::exists(root_ / "Debug"));
  EXPECT_TRUE(fs::exists(root_ / "Restore/Firmware/all_flash"));
  EXPECT_TRUE(fs::exists(root_ / "Restore/Firmware/Device_map.plist"));
  Value manifest = plist(kBuildManifestPath);
  EXPECT_FALSE(manifest.contains("SupportedProductTypes"));
  EXPECT_EQ(manifest.get("BuildIdentities").arr()[0].valueForKeyPath("Manifest.Evil.Info.Path").str(), "../../x");
  EXPECT_FALSE(fs::exists(root_ / kPlatformKeysPath));
  EXPECT_EQ(plist("Restore/Extra.plist").get("Answer").intValue(), 42);
  EXPECT_TRUE(fs::exists(root_ / "FactoryDiskImage.dmg"));
  EXPECT_FALSE(fs::exists(root_ / "FactoryDiskImage.dmg.signature"));
  EXPECT_TRUE(fs::is_directory(root_ / "Restore/Empty"));
  EXPECT_TRUE(fs::is_empty(root_ / "Restore/Empty"));
  // A manifest path that leaves the bundle is only text: nothing lands outside.
  EXPECT_FALSE(fs::exists(base_.parent_path() / "x"));
}

TEST_F(SynthBundleTest, AFolderCanBeALinkToOutside) {
  fs::path outside = base_ / "elsewhere";
  fs::create_directory(outside);
  BundleDescription d = sampleBundle();
  d.omitPath("Restore/Diags");
  d.addLink("Restore/Diags", outside.string());
  write(d);
  EXPECT_EQ(fs::read_symlink(root_ / "Restore/Diags"), outside);

  // The firmware folder moved out keeps its contents reachable through the link.
  std::string error;
  ASSERT_TRUE(replaceWithLink(root_.string(), "Restore/Firmware", (base_ / "fw").string(), &error)) << error;
  EXPECT_TRUE(fs::is_symlink(root_ / "Restore/Firmware"));
  EXPECT_TRUE(fs::is_regular_file(base_ / "fw/device_map.txt"));
  EXPECT_TRUE(readPropertyListFile((root_ / kCapitalDeviceMapPath).string()).contains("r13ap"));
}

TEST_F(SynthBundleTest, WritingNeverLeavesTheRoot) {
  std::string error;
  BundleDescription escape = sampleBundle();
  escape.addFile("../../escaped.txt", "x");
  EXPECT_FALSE(writeBundle(escape, root_.string(), &error));
  EXPECT_NE(error.find("unsafe"), std::string::npos) << error;
  EXPECT_FALSE(fs::exists(base_ / "escaped.txt"));
  EXPECT_FALSE(fs::exists(base_.parent_path() / "escaped.txt"));

  // A link written earlier is never written through.
  fs::path outside = base_ / "outside";
  fs::create_directory(outside);
  BundleDescription through;
  through.addLink("Out", outside.string());
  through.addLink("Out/inner", "x");
  fs::path root2 = base_ / "Bundle2";
  EXPECT_FALSE(writeBundle(through, root2.string(), &error));
  EXPECT_NE(error.find("through"), std::string::npos) << error;
  EXPECT_TRUE(fs::is_empty(outside));

  // Only a missing or empty root is written to.
  fs::create_directories(base_ / "Busy");
  std::ofstream(base_ / "Busy/file") << "x";
  EXPECT_FALSE(writeBundle(BundleDescription(), (base_ / "Busy").string(), &error));
  EXPECT_FALSE(writeBundle(BundleDescription(), (base_ / "Busy/file").string(), &error));
  fs::create_directories(base_ / "Empty");
  EXPECT_TRUE(writeBundle(BundleDescription(), (base_ / "Empty").string(), &error)) << error;
  EXPECT_TRUE(fs::is_regular_file(base_ / "Empty" / kBuildManifestPath));
}

TEST(LargeBundleTest, AddsConsistentProductsOfTheUsualShape) {
  BundleDescription small = sampleBundle();
  BundleDescription d = largeBundle(3);
  expectSelfConsistent(d);
  EXPECT_EQ(d.identities.size(), small.identities.size() + 3 * 8);
  EXPECT_EQ(d.maps.deviceMapRows.size(), small.maps.deviceMapRows.size() + 3 * 2);
  EXPECT_NE(d.findIdentity("q0002dev", "Internal Development"), nullptr);
  EXPECT_EQ(d.findIdentity("q0000ap", "Factory - Support")->manifest.back().digest.size(), 48u);
}

TEST(LargeBundleTest, DefaultSizeMakesAManifestOfAboutTenMegabytes) {
  size_t bytes = toXml(buildManifestPlist(largeBundle(kLargeBundleProducts))).size();
  EXPECT_GT(bytes, 8u << 20);
  EXPECT_LT(bytes, 13u << 20);
}

// The committed demo bundle must not drift from the description it came from.
TEST(CommittedSampleTest, MatchesSampleBundle) {
  fs::path root = fs::path(VELMAR_SOURCE_DIR) / "sample/Bundle";
  ASSERT_TRUE(fs::is_directory(root)) << root;
  std::set<std::string> expected;
  for (const BundleEntry& e : layoutBundle(sampleBundle())) {
    expected.insert(e.path);
    fs::path p = root / e.path;
    if (e.kind == BundleEntry::Kind::Link) {
      ASSERT_TRUE(fs::is_symlink(p)) << e.path;
      EXPECT_EQ(fs::read_symlink(p).string(), e.contents);
    } else if (e.kind == BundleEntry::Kind::File) {
      EXPECT_EQ(readText(p), e.contents) << e.path;
    }
  }
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (entry.is_directory() && !entry.is_symlink()) continue;
    std::string rel = fs::relative(entry.path(), root).string();
    EXPECT_TRUE(expected.count(rel)) << "unexpected " << rel;
  }
}

}  // namespace
}  // namespace velmar::synth

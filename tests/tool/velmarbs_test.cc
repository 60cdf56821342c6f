// velmarbs as the desktop application and scripts see it: a child process,
// its exit status, and the property lists on its standard output.

#include <gtest/gtest.h>

#include <algorithm>

#include "engine/collection_extras.h"
#include "synth/bundle_builder.h"
#include "synth/sample_bundles.h"
#include "synth/temp_dir.h"
#include "tests/tool/tool_test_support.h"
#include "tool/disk_image.h"

namespace velmar::tool {
namespace {

using testing::existsNoFollow;
using testing::listTree;
using testing::namesStartingWith;
using testing::propertyListsIn;
using testing::readText;
using testing::runVelmarbs;
using testing::ToolRun;
using testing::writeText;

bool sortedIgnoringCase(const std::vector<std::string>& names) {
  return std::is_sorted(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
    return caseInsensitiveLess(a, b);
  });
}

class VelmarbsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(synth::writeBundle(synth::sampleBundle(), bundle_, &error)) << error;
  }

  ToolRun run(const std::vector<std::string>& args) { return runVelmarbs(args, scratch_.path()); }

  // The one property list a query prints, checked to be the only one.
  Value reply(const std::vector<std::string>& args) {
    ToolRun r = run(args);
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    std::vector<Value> lists = propertyListsIn(r.out);
    EXPECT_EQ(lists.size(), 1u) << r.out;
    return lists.empty() ? Value() : lists.front();
  }

  // A command line error: status 2, one line on standard error, nothing on
  // standard output.
  void expectUsageError(const std::vector<std::string>& args) {
    ToolRun r = run(args);
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.rfind("velmarbs: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find("see velmarbs --help"), std::string::npos) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  }

  synth::TempDir dir_{"velmar-tool"};
  synth::TempDir scratch_{"velmar-scratch"};
  std::string bundle_ = dir_ / "Bundle";
  std::string target_ = dir_ / "Stripped";
};

TEST_F(VelmarbsTest, HelpAndVersion) {
  ToolRun r = run({"--version"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, std::string("velmarbs ") + VELMAR_VERSION + "\n");
  r = run({"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("--validvariants"), std::string::npos);
}

TEST_F(VelmarbsTest, UnknownWordsMissingValuesAndIncompleteQueriesAreStatus2) {
  std::set<std::string> before = listTree(dir_.path());
  expectUsageError({"--source", bundle_, "--frobnicate"});
  expectUsageError({"--source", bundle_, "--target"});
  expectUsageError({"--validvariants", "--source", bundle_});
  expectUsageError({"--validproducts"});
  expectUsageError({"--source", bundle_, "--unpersonalized", "sometimes"});
  expectUsageError({"--source", bundle_, "--target", target_, "--bogus"});
  EXPECT_EQ(listTree(dir_.path()), before);
}

TEST_F(VelmarbsTest, KnownListsAreArraysOfNames) {
  Value products = reply({"--knownProducts"});
  ASSERT_TRUE(products.isArray());
  EXPECT_GT(products.count(), 2u);
  EXPECT_TRUE(sortedIgnoringCase(products.strings()));

  Value variants = reply({"--knownvariants"});
  ASSERT_TRUE(variants.isArray());
  EXPECT_TRUE(variants.containsMember(Value("swdl")));
  EXPECT_TRUE(sortedIgnoringCase(variants.strings()));

  // With a bundle, the table is narrowed to the bundle's products.
  EXPECT_EQ(reply({"--knownProducts", "--source", bundle_}), Value::stringArray({"r11", "r13"}));
}

TEST_F(VelmarbsTest, ValidProductsAndVariantsAreKeyedDictionaries) {
  Value products =
      reply({"--validproducts", "--source", bundle_, "--keepDevFirmware", "--keepAPFirmware"});
  ASSERT_TRUE(products.isDict());
  EXPECT_EQ(products.get("validProducts"), Value::stringArray({"r11", "r13"}));

  Value variants = reply({"--validvariants", "--product", "r13", "--source", bundle_,
                          "--keepDevFirmware", "--keepAPFirmware"});
  ASSERT_TRUE(variants.isDict());
  Value names = variants.get("validVariants");
  ASSERT_TRUE(names.isArray());
  EXPECT_GT(names.count(), 0u);
  EXPECT_TRUE(sortedIgnoringCase(names.strings()));
}

TEST_F(VelmarbsTest, BundleWithoutBuildManifestGoesToTheLegacyEngine) {
  std::filesystem::remove(bundle_ + "/Restore/BuildManifest.plist");
  // The legacy engine's queries need the manifest; they answer empty lists
  // after their error line, and the known products are its built-in table.
  ToolRun r = run({"--validproducts", "--source", bundle_});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("XXX ERROR: BuildManifest.plist cannot be read."), std::string::npos) << r.out;
  EXPECT_EQ(propertyListsIn(r.out).at(0).get("validProducts"), Value::makeArray());
  EXPECT_GT(reply({"--knownProducts", "--source", bundle_}).count(), 2u);
  // The manifest engine, forced, still answers, with an empty list.
  EXPECT_EQ(
      reply({"--validproducts", "--source", bundle_, "--engine", "manifest"}).get("validProducts"),
      Value::makeArray());
}

TEST_F(VelmarbsTest, ValidateWritesNothingAndCanPrintResults) {
  std::set<std::string> before = listTree(dir_.path());
  ToolRun r =
      run({"--source", bundle_, "--product", "r13", "--factory", "swdl", "--results", "--ov"});
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(listTree(dir_.path()), before);
  std::vector<Value> lists = propertyListsIn(r.out);
  ASSERT_EQ(lists.size(), 1u) << r.out;
  EXPECT_TRUE(lists[0].get("strippedManifest").isArray());
  EXPECT_TRUE(lists[0].get("modifiedFiles").isDict());
}

TEST_F(VelmarbsTest, StripWritesWhatTheResultsSayAndLeavesTheSourceAlone) {
  std::set<std::string> source = listTree(bundle_);
  ToolRun r = run({"--source", bundle_, "--target", target_, "--product", "r13", "--factory",
                   "swdl", "--personalized", "on", "--unpersonalized", "off", "--results"});
  ASSERT_EQ(r.status, 0) << r.out;
  std::vector<Value> lists = propertyListsIn(r.out);
  ASSERT_EQ(lists.size(), 1u) << r.out;
  const Value& results = lists[0];

  std::set<std::string> expected;
  auto addWithFolders = [&](std::string path) {
    for (; !path.empty(); path = path.substr(0, std::min(path.rfind('/'), path.size())))
      if (!expected.insert(path).second || path.find('/') == std::string::npos) break;
  };
  for (const std::string& path : results.get("strippedManifest").strings()) addWithFolders(path);
  for (const std::string& path : results.get("modifiedFiles").dict().keys()) addWithFolders(path);
  EXPECT_FALSE(expected.empty());
  EXPECT_EQ(listTree(target_), expected);
  for (const auto& [path, contents] : results.get("modifiedFiles").dict()) {
    if (contents.isString()) {
      EXPECT_EQ(readText(target_ + "/" + path), contents.str()) << path;
    } else if (contents.isData()) {
      EXPECT_EQ(testing::linkText(target_ + "/" + path), contents.dataValue().bytes) << path;
    }
  }
  EXPECT_EQ(listTree(bundle_), source);
  EXPECT_TRUE(namesStartingWith(dir_.path(), ".Stripped.velmarbs-").empty());
}

TEST_F(VelmarbsTest, ExistingTargetNeedsOv) {
  writeText(target_ + "/marker", "old");
  const std::vector<std::string> args = {"--source",  bundle_, "--target",  target_,
                                         "--product", "r13",   "--factory", "swdl"};
  ToolRun r = run(args);
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.out.find("XXX ERROR: "), std::string::npos);
  EXPECT_EQ(readText(target_ + "/marker"), "old");

  std::vector<std::string> withOv = args;
  withOv.push_back("--ov");
  r = run(withOv);
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_FALSE(existsNoFollow(target_ + "/marker"));
  EXPECT_TRUE(existsNoFollow(target_ + "/Restore/BuildManifest.plist"));
  EXPECT_TRUE(namesStartingWith(dir_.path(), ".Stripped.velmarbs-").empty());
}

TEST_F(VelmarbsTest, ATargetNameOfTheLongestLengthAllowedStrips) {
  // The working folder beside it carries a longer name; it must still fit.
  const std::string target = dir_ / std::string(255, 'L');
  ToolRun r = run({"--source", bundle_, "--target", target, "--product", "r13", "--factory", "ss"});
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(existsNoFollow(target + "/Restore/BuildManifest.plist"));
}

TEST_F(VelmarbsTest, OverlappingSourceAndTargetAreRefusedBeforeAnyWork) {
  std::set<std::string> before = listTree(dir_.path());
  EXPECT_EQ(run({"--source", bundle_, "--target", bundle_ + "/Restore/out"}).status, 2);
  EXPECT_EQ(run({"--source", bundle_, "--target", bundle_, "--ov"}).status, 2);
  EXPECT_EQ(run({"--source", bundle_, "--target", dir_.path(), "--ov"}).status, 2);
  EXPECT_EQ(listTree(dir_.path()), before);
}

TEST_F(VelmarbsTest, WhatCannotBeCarriedOutOrReadHasItsStatus) {
  ToolRun r = run({"--source", bundle_, "--target", target_, "--encrypt"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.out.find("--encrypt"), std::string::npos);
  EXPECT_EQ(run({"--source", dir_ / "missing", "--target", target_}).status, 3);
  EXPECT_EQ(run({"--validproducts", "--source", dir_ / "missing"}).status, 3);
  EXPECT_EQ(run({"--source", bundle_, "--target", dir_ / "no/such/folder/T"}).status, 3);
  // A folder without Restore/ is no bundle: said once, not left to an engine.
  std::filesystem::create_directories(dir_ / "Downloads/x");
  r = run({"--validproducts", "--source", dir_ / "Downloads"});
  EXPECT_EQ(r.status, 3);
  EXPECT_NE(r.out.find("is not a restore bundle: it has no Restore folder."), std::string::npos)
      << r.out;
  // The engine's own failure passes through as its status.
  r = run({"--source", bundle_, "--target", target_, "--product", "r99"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("XXX ERROR: products r99 not found."), std::string::npos) << r.out;
  EXPECT_FALSE(existsNoFollow(target_));
}

TEST_F(VelmarbsTest, DiskImagesInAndOut) {
  std::optional<std::string> xorriso = findXorriso();
  if (!xorriso || !findSevenZip()) GTEST_SKIP() << "xorriso or 7-Zip is not installed";
  // An image of the source bundle, its folder inside, as images hold them.
  const std::string image = scratch_ / "Bundle.dmg";
  ASSERT_TRUE(makeImage(*xorriso, dir_.path(), image));
  EXPECT_EQ(reply({"--validproducts", "--source", image}).get("validProducts"),
            Value::stringArray({"r11", "r13"}));

  const std::string imageTarget = scratch_ / "Stripped.dmg";
  ToolRun r =
      run({"--source", bundle_, "--target", imageTarget, "--product", "r13", "--factory", "swdl"});
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(readText(imageTarget).substr(32769, 5), "CD001");
  EXPECT_TRUE(namesStartingWith(scratch_.path(), ".Stripped.dmg.velmarbs-").empty());

  // An image this tool made reads back with its links.
  const std::string fromImage = scratch_ / "FromImage";
  r = run({"--source", imageTarget, "--target", fromImage, "--product", "r13", "--factory", "swdl"});
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(std::filesystem::is_symlink(fromImage + "/RestoreTools.dmg"));
}

TEST_F(VelmarbsTest, MissingImageProgramsAreClearErrors) {
  const std::string noPrograms = scratch_ / "empty-bin";
  std::filesystem::create_directories(noPrograms);
  // Without xorriso a .dmg target is refused before any work.
  ToolRun r =
      runVelmarbs({"--source", bundle_, "--target", dir_ / "T.dmg"}, scratch_.path(), noPrograms);
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.out.find("xorriso"), std::string::npos) << r.out;
  EXPECT_FALSE(existsNoFollow(dir_ / "T.dmg"));
  // Without 7-Zip a .dmg source cannot be read.
  writeText(scratch_ / "Source.dmg", "not really an image");
  r = runVelmarbs({"--validproducts", "--source", scratch_ / "Source.dmg"}, scratch_.path(),
                  noPrograms);
  EXPECT_EQ(r.status, 3);
  EXPECT_NE(r.out.find("7-Zip"), std::string::npos) << r.out;
  // With it, an image that is no image is a read failure too.
  if (findSevenZip()) {
    EXPECT_EQ(run({"--source", scratch_ / "Source.dmg"}).status, 3);
  }
}

}  // namespace
}  // namespace velmar::tool

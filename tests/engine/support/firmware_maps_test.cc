// Cutting the Restore/Firmware index files down to the chosen products.

#include "engine/support/firmware_maps.h"

#include <gtest/gtest.h>

#include "tests/engine/support/fake_support_host.h"

namespace velmar {
namespace {

using testing::dictOf;
using testing::setOf;

const char kDeviceMapText[] = "Restore/Firmware/device_map.txt";
const char kDeviceMapPlist[] = "Restore/Firmware/device_map.plist";
const char kTargetMapText[] = "Restore/Firmware/target_map.txt";
const char kPlatformKeys[] = "Restore/Firmware/platform_keys.plist";

TEST(DeviceMapLabelTest, TakesTheFifthFieldCountingEmptyFields) {
  EXPECT_EQ(deviceMapLabel("r13ap 1 2 3 Corvid2,1 extra"), "Corvid2,1");
  EXPECT_EQ(deviceMapLabel("r13ap\t1\t2\t3\tlabel"), "label");
  // Two blanks make an empty field, which shifts the label.
  EXPECT_EQ(deviceMapLabel("r13ap  2 3 label"), "label");
  EXPECT_EQ(deviceMapLabel("r13ap 1  3 4 5"), "4");
  EXPECT_EQ(deviceMapLabel("a b c d    "), "");
  EXPECT_FALSE(deviceMapLabel("r13ap 1 2 3").has_value());
  EXPECT_FALSE(deviceMapLabel("").has_value());
}

TEST(FilterMapTextTest, KeepsLinesContainingAnyNameIgnoringCase) {
  const char text[] =
      "R13AP 0 0 0 big\n"
      "\n"
      "r31ap 0 0 0 other\n"
      "xr13apx 0 0 0 embedded\n"
      "r13ap short";  // no final line feed, fewer than five fields
  MapFilterResult r = filterMapText(text, setOf({"r13ap"}), MapRowLabel::FifthField);
  EXPECT_EQ(r.contents.str(), "R13AP 0 0 0 big\nxr13apx 0 0 0 embedded\nr13ap short\n");
  EXPECT_EQ(r.found, setOf({"big", "embedded"}));
  EXPECT_EQ(r.dropped, setOf({"other"}));
}

TEST(FilterMapTextTest, WholeLinesNameTargetRows) {
  MapFilterResult r = filterMapText("r13 a\nr31 b\n\n", Value::makeArray({"R13"}), MapRowLabel::WholeLine);
  EXPECT_EQ(r.contents.str(), "r13 a\n");
  EXPECT_EQ(r.found, setOf({"r13 a"}));
  EXPECT_EQ(r.dropped, setOf({"r31 b"}));
}

TEST(FilterMapTextTest, EmptyNameMatchesNothing) {
  EXPECT_FALSE(containsAnyIgnoringCase("anything", setOf({""})));
  MapFilterResult r = filterMapText("a b c d e\n", setOf({""}), MapRowLabel::FifthField);
  EXPECT_EQ(r.contents.str(), "");
  EXPECT_EQ(r.found.count(), 0u);
}

TEST(FilterDeviceMapPlistTest, KeysMustEqualAClassIgnoringCase) {
  Value root = dictOf({{"r31ap", 1}, {"R13AP", 2}, {"r13ap-dev", 3}});
  MapFilterResult r = filterDeviceMapPlist(root, setOf({"r13ap"}));
  EXPECT_EQ(r.contents, dictOf({{"R13AP", 2}}));
  EXPECT_EQ(r.found, setOf({"R13AP"}));
  EXPECT_EQ(r.dropped, setOf({"r13ap-dev", "r31ap"}));
}

TEST(FilterPlatformKeysTest, NoMatchLeavesAnEmptyArrayAndOtherKeys) {
  Value root =
      dictOf({{"Version", 3}, {"PlatformKeys", Value::makeArray({dictOf({{"PlatformName", "xr2130x"}})})}});
  MapFilterResult r = filterPlatformKeys(root, Value::makeArray({"xr2120x"}));
  EXPECT_EQ(r.contents, dictOf({{"Version", 3}, {"PlatformKeys", Value::makeArray()}}));
  EXPECT_EQ(r.found.count(), 0u);
  EXPECT_EQ(r.dropped, setOf({"xr2130x"}));

  r = filterPlatformKeys(root, Value::makeArray({"XR2130X"}));
  EXPECT_EQ(r.contents.get("PlatformKeys").count(), 1u);
  EXPECT_EQ(r.found, setOf({"xr2130x"}));
}

TEST(ProcessorsForProductsTest, UnknownBoardsAddNothing) {
  Value table = dictOf({{"r13", dictOf({{"processor", "xr2120x"}})}, {"r99", dictOf({{"model", "X1,1"}})}});
  EXPECT_EQ(processorsForProducts(Value::makeArray({"r13", "r99", "zz"}), table),
            Value::makeArray({"xr2120x"}));
}

class FirmwareMapStepTest : public testing::SupportStepTest {
 protected:
  Value manifestEntry =
      dictOf({{"workAllDeviceClasses", setOf({"r13ap"})}, {"workAllProducts", setOf({"r13"})}});
  Value legacyEntry = dictOf(
      {{"workDeviceClassList", Value::makeArray({"r13ap"})}, {"workProductList", Value::makeArray({"r13"})}});
};

TEST_F(FirmwareMapStepTest, MissingFilesWarnAndRecordNothing) {
  EXPECT_EQ(stripRestoreFirmwareDeviceMapDotTxt(manifest_, manifestEntry), 0);
  EXPECT_EQ(stripRestoreFirmwareDeviceMapDotPlist(manifest_, manifestEntry), 0);
  EXPECT_EQ(stripRestoreFirmwareTargetMapDotTxt(manifest_, manifestEntry), 0);
  EXPECT_EQ(stripRestoreFirmwarePlatformKeysDotPlist(manifest_, manifestEntry), 0);
  // The missing plist is reported under the text map's name.
  EXPECT_EQ(logged(),
            "!!! WARNING: \"Restore/Firmware/device_map.txt\" not found.\n"
            "!!! WARNING: \"Restore/Firmware/device_map.txt\" not found.\n"
            "!!! WARNING: target_map.txt not found.\n"
            "!!! WARNING: \"Restore/Firmware/platform_keys.plist\" not found.\n");
  EXPECT_EQ(manifest_.modifiedRecords, 0);
}

TEST_F(FirmwareMapStepTest, DeviceMapTextManifestAndLegacyMessages) {
  bundle_.file(kDeviceMapText, "r13ap 0 0 0 Corvid2,1\nr31ap 0 0 0 Tabula1,1\n\nr22ap\n");
  EXPECT_EQ(stripRestoreFirmwareDeviceMapDotTxt(manifest_, manifestEntry), 0);
  EXPECT_EQ(logged(), "+++ device_map.txt found Corvid2,1.\n");
  EXPECT_EQ(manifest_.modified.get(kDeviceMapText), Value("r13ap 0 0 0 Corvid2,1\n"));

  LogObject::sharedLogger().setHistoricalLog("");
  EXPECT_EQ(stripRestoreFirmwareDeviceMapDotTxt(legacy_, legacyEntry), 0);
  // The short dropped line has no label to scrub.
  EXPECT_EQ(logged(), "+++ device_map.txt found Corvid2,1.\n--- device_map.txt scrub Tabula1,1.\n");
  EXPECT_EQ(legacy_.modified.get(kDeviceMapText), Value("r13ap 0 0 0 Corvid2,1\n"));
}

TEST_F(FirmwareMapStepTest, KeptLinesWithoutLabelsStillWarnAndAreWritten) {
  bundle_.file(kDeviceMapText, "r13ap 1\nr31ap 0 0 0 Tabula1,1\n");
  stripRestoreFirmwareDeviceMapDotTxt(legacy_, legacyEntry);
  EXPECT_EQ(logged(), "--- device_map.txt scrub Tabula1,1.\n!!! WARNING: device_map.txt r13ap not found.\n");
  EXPECT_EQ(legacy_.modified.get(kDeviceMapText), Value("r13ap 1\n"));
}

TEST_F(FirmwareMapStepTest, UnreadableTextIsAWarningWithoutRecord) {
  bundle_.file(kTargetMapText, std::string("r13 \xff\xfe\n"));
  EXPECT_EQ(stripRestoreFirmwareTargetMapDotTxt(manifest_, manifestEntry), 0);
  EXPECT_EQ(logged().rfind("!!! WARNING: target_map.txt could not be read - ", 0), 0u) << logged();
  EXPECT_NE(logged().find("UTF-8"), std::string::npos);
  EXPECT_EQ(manifest_.modifiedRecords, 0);
}

TEST_F(FirmwareMapStepTest, TargetMapNamesWholeLinesAndBoardCodes) {
  bundle_.file(kTargetMapText, "r31 x\n");
  stripRestoreFirmwareTargetMapDotTxt(manifest_, manifestEntry);
  EXPECT_EQ(logged(), "!!! WARNING: target_map.txt r13 not found.\n");
  EXPECT_EQ(manifest_.modified.get(kTargetMapText), Value(""));

  LogObject::sharedLogger().setHistoricalLog("");
  bundle_.file(kTargetMapText, "R13 board\nr31 x\n");
  stripRestoreFirmwareTargetMapDotTxt(legacy_, legacyEntry);
  EXPECT_EQ(logged(), "+++ target_map.txt found R13 board.\n--- target_map.txt scrub r31 x.\n");
}

TEST_F(FirmwareMapStepTest, DeviceMapPlistRewritten) {
  bundle_.plist(kDeviceMapPlist, dictOf({{"R13AP", dictOf({{"Platform", "xr2120x"}})}, {"r31ap", 1}}));
  stripRestoreFirmwareDeviceMapDotPlist(legacy_, legacyEntry);
  EXPECT_EQ(logged(), "+++ device_map.plist found R13AP.\n--- device_map.plist scrub r31ap.\n");
  EXPECT_EQ(legacy_.modified.get(kDeviceMapPlist), dictOf({{"R13AP", dictOf({{"Platform", "xr2120x"}})}}));
}

TEST_F(FirmwareMapStepTest, LegacyReadsOnlyItsOwnKeys) {
  bundle_.plist(kDeviceMapPlist, dictOf({{"r13ap", 1}}));
  stripRestoreFirmwareDeviceMapDotPlist(legacy_, manifestEntry);
  EXPECT_EQ(logged(), "--- device_map.plist scrub r13ap.\n!!! WARNING: device_map.plist (null) not found.\n");
}

TEST_F(FirmwareMapStepTest, PlatformKeysWarnWithBoardsAndProcessors) {
  Value root =
      dictOf({{"PlatformKeys", Value::makeArray({dictOf({{"PlatformName", "xr2130x"}, {"Key", "k"}})})},
              {"Other", "kept"}});
  bundle_.plist(kPlatformKeys, root);
  Value entry = dictOf({{"workAllProducts", setOf({"r13", "zz"})}});
  stripRestoreFirmwarePlatformKeysDotPlist(manifest_, entry);
  EXPECT_EQ(logged(), "!!! WARNING: platform_keys.plist r13, zz (xr2120x) not found.\n");
  EXPECT_EQ(manifest_.modified.get(kPlatformKeys),
            dictOf({{"PlatformKeys", Value::makeArray()}, {"Other", "kept"}}));

  LogObject::sharedLogger().setHistoricalLog("");
  stripRestoreFirmwarePlatformKeysDotPlist(legacy_, dictOf({{"workProductList", Value::makeArray({"r31"})}}));
  EXPECT_EQ(logged(), "+++ platform_keys.plist found xr2130x.\n");
  EXPECT_EQ(legacy_.modified.get(kPlatformKeys), root);
}

}  // namespace
}  // namespace velmar

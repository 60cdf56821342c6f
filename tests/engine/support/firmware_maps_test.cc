// Cutting the Restore/Firmware index files down to the chosen products.

#include "engine/support/firmware_maps.h"

#include <gtest/gtest.h>

#include "base/plist_io.h"
#include "tests/engine/support/fake_support_host.h"

namespace velmar::testing {
namespace {

const char kDeviceMapText[] = "Restore/Firmware/device_map.txt";
const char kDeviceMapPlist[] = "Restore/Firmware/device_map.plist";
const char kTargetMapText[] = "Restore/Firmware/target_map.txt";
const char kPlatformKeys[] = "Restore/Firmware/platform_keys.plist";

TEST(MapFilterTest, DeviceMapRowsMatchByContainedNameIgnoringCase) {
  // Two blanks make an empty field, which shifts the label.
  EXPECT_EQ(deviceMapLabel("r13ap  2 3 label"), "label");
  EXPECT_FALSE(deviceMapLabel("r13ap 1 2 3").has_value());
  // Blank lines vanish, every kept line ends in a line feed, a short line is
  // kept without a label, and an empty name matches nothing.
  MapFilterResult r =
      filterMapText("R13AP 0 0 0 big\n\nr31ap 0 0 0 other\nxr13apx 0 0 0 embedded\nr13ap short",
                    setOf({"r13ap", ""}), MapRowLabel::FifthField);
  EXPECT_EQ(r.contents.str(), "R13AP 0 0 0 big\nxr13apx 0 0 0 embedded\nr13ap short\n");
  EXPECT_EQ(r.found, setOf({"big", "embedded"}));
  EXPECT_EQ(r.dropped, setOf({"other"}));
}

class FirmwareMapStepTest : public SupportStepTest {
 protected:
  Value manifestEntry =
      dictOf({{"workAllDeviceClasses", setOf({"r13ap"})}, {"workAllProducts", setOf({"r13"})}});
  Value legacyEntry =
      dictOf({{"workDeviceClassList", arrayOf({"r13ap"})}, {"workProductList", arrayOf({"r13"})}});
};

TEST_F(FirmwareMapStepTest, MissingOrUnreadableFilesWarnAndRecordNothing) {
  for (auto* step : {stripRestoreFirmwareDeviceMapDotTxt, stripRestoreFirmwareDeviceMapDotPlist,
                     stripRestoreFirmwareTargetMapDotTxt, stripRestoreFirmwarePlatformKeysDotPlist})
    EXPECT_EQ(step(manifest_, manifest_.supportRequest(manifestEntry)), 0);
  // The missing plist is reported under the text map's name.
  EXPECT_EQ(takeLog(),
            "!!! WARNING: \"Restore/Firmware/device_map.txt\" not found.\n"
            "!!! WARNING: \"Restore/Firmware/device_map.txt\" not found.\n"
            "!!! WARNING: target_map.txt not found.\n"
            "!!! WARNING: \"Restore/Firmware/platform_keys.plist\" not found.\n");
  put(kTargetMapText, "r13 \xff\xfe\n");
  EXPECT_EQ(stripRestoreFirmwareTargetMapDotTxt(manifest_, manifest_.supportRequest(manifestEntry)), 0);
  EXPECT_EQ(
      logText(),
      "!!! WARNING: target_map.txt could not be read - The file \u201ctarget_map.txt\u201d couldn\u2019t "
      "be opened using text encoding Unicode (UTF-8)..\n");
  EXPECT_EQ(manifest_.modified.count(), 0u);
}

TEST_F(FirmwareMapStepTest, TextMapsLogFoundAndInLegacyMannerScrubbed) {
  put(kDeviceMapText, "r13ap 0 0 0 Corvid2,1\nr31ap 0 0 0 Tabula1,1\n\nr22ap\n");
  EXPECT_EQ(stripRestoreFirmwareDeviceMapDotTxt(manifest_, manifest_.supportRequest(manifestEntry)), 0);
  EXPECT_EQ(takeLog(), "+++ device_map.txt found Corvid2,1.\n");
  EXPECT_EQ(manifest_.modified.get(kDeviceMapText), Value("r13ap 0 0 0 Corvid2,1\n"));
  stripRestoreFirmwareDeviceMapDotTxt(legacy_, legacy_.supportRequest(legacyEntry));
  EXPECT_EQ(takeLog(), "+++ device_map.txt found Corvid2,1.\n--- device_map.txt scrub Tabula1,1.\n");

  // A kept line without a label still leaves the class "not found".
  put(kDeviceMapText, "r13ap 1\n");
  stripRestoreFirmwareDeviceMapDotTxt(legacy_, legacy_.supportRequest(legacyEntry));
  EXPECT_EQ(takeLog(), "!!! WARNING: device_map.txt r13ap not found.\n");
  EXPECT_EQ(legacy_.modified.get(kDeviceMapText), Value("r13ap 1\n"));

  put(kTargetMapText, "r31 x\n");
  stripRestoreFirmwareTargetMapDotTxt(manifest_, manifest_.supportRequest(manifestEntry));
  EXPECT_EQ(takeLog(), "!!! WARNING: target_map.txt r13 not found.\n");
  EXPECT_EQ(manifest_.modified.get(kTargetMapText), Value(""));
  put(kTargetMapText, "R13 board\nr31 x\n");
  stripRestoreFirmwareTargetMapDotTxt(legacy_, legacy_.supportRequest(legacyEntry));
  EXPECT_EQ(takeLog(), "+++ target_map.txt found R13 board.\n--- target_map.txt scrub r31 x.\n");
}

TEST_F(FirmwareMapStepTest, PlistMapsKeepMatchingEntries) {
  // Keys must equal a device class, ignoring case.
  put(kDeviceMapPlist, toXml(dictOf({{"R13AP", 1}, {"r31ap", 2}, {"r13ap-dev", 3}})));
  stripRestoreFirmwareDeviceMapDotPlist(legacy_, legacy_.supportRequest(legacyEntry));
  EXPECT_EQ(takeLog(), "+++ device_map.plist found R13AP.\n--- device_map.plist scrub r13ap-dev, r31ap.\n");
  EXPECT_EQ(legacy_.modified.get(kDeviceMapPlist), dictOf({{"R13AP", 1}}));

  Value keys =
      dictOf({{"PlatformKeys", arrayOf({dictOf({{"PlatformName", "xr2130x"}})})}, {"Other", "kept"}});
  put(kPlatformKeys, toXml(keys));
  // Unknown boards add no processor.
  stripRestoreFirmwarePlatformKeysDotPlist(manifest_, SupportRequest{.products = setOf({"r13", "zz"})});
  EXPECT_EQ(takeLog(), "!!! WARNING: platform_keys.plist r13, zz (xr2120x) not found.\n");
  EXPECT_EQ(manifest_.modified.get(kPlatformKeys),
            dictOf({{"PlatformKeys", arrayOf({})}, {"Other", "kept"}}));
  stripRestoreFirmwarePlatformKeysDotPlist(legacy_, SupportRequest{.products = arrayOf({"r31"}), .reportScrubs = true});
  EXPECT_EQ(takeLog(), "+++ platform_keys.plist found xr2130x.\n");
  EXPECT_EQ(legacy_.modified.get(kPlatformKeys), keys);
}

}  // namespace
}  // namespace velmar::testing

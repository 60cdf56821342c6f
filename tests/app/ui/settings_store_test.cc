// Settings in QSettings read through the registered defaults.
#include "app/ui/settings_store.h"

#include <gtest/gtest.h>

#include <QSignalSpy>

namespace velmar::app {
namespace {

TEST(SettingsStoreTest, UnsetKeysReadTheirDefaultsAndSetOnesSurviveAReopen) {
  {
    SettingsStore settings;
    settings.clear();
    EXPECT_TRUE(settings.boolForKey(kKeepAPFirmwareKey));
    EXPECT_FALSE(settings.boolForKey(kKeepBundleImagesKey));
    EXPECT_EQ(settings.arrayForKey(kProductsKey), NameList{"r13"});
    EXPECT_EQ(settings.stringForKey(kLogFilePathKey), defaultLogFilePath());

    QSignalSpy changed(&settings, &SettingsStore::valueChanged);
    settings.setBool(kKeepAPFirmwareKey, false);
    settings.setStrings(kProductsKey, {});
    settings.setStrings(kVariantsKey, {"swdl"});
    settings.setString(kLastSourceSelectedKey, "/a, b/bundle.dmg");
    ASSERT_EQ(changed.count(), 4);
    EXPECT_EQ(changed[0][0].toString(), "keepAPFirmware");
  }
  SettingsStore reopened;
  UserDefaults defaults = reopened.userDefaults();
  EXPECT_FALSE(defaults.boolForKey(kKeepAPFirmwareKey));
  // An empty list is the user's choice, not a missing key.
  EXPECT_TRUE(defaults.arrayForKey(kProductsKey).empty());
  EXPECT_EQ(defaults.arrayForKey(kVariantsKey), NameList{"swdl"});
  EXPECT_EQ(defaults.stringForKey(kLastSourceSelectedKey), "/a, b/bundle.dmg");
  reopened.clear();
}

}  // namespace
}  // namespace velmar::app

#include "app/tool_arguments.h"

#include <gtest/gtest.h>

namespace velmar::app {
namespace {

using Words = std::vector<std::string>;

TEST(QueryArgumentsTest, FollowTheToolsContract) {
  EXPECT_EQ(knownProductsArguments(""), Words{"--knownProducts"});
  EXPECT_EQ(knownProductsArguments("/b/x.dmg"), (Words{"--knownProducts", "--source", "/b/x.dmg"}));
  EXPECT_EQ(knownVariantsArguments(), Words{"--knownvariants"});
  EXPECT_EQ(validProductsArguments("/b", false, true),
            (Words{"--validproducts", "--source", "/b", "--stripDevFirmware", "--keepAPFirmware"}));
  EXPECT_EQ(validVariantsArguments("r13", "/b", true, false),
            (Words{"--validvariants", "--product", "r13", "--source", "/b", "--keepDevFirmware",
                   "--stripAPFirmware"}));
}

UserDefaults withSource(const std::string& source) {
  UserDefaults defaults;
  defaults.setObject(kLastSourceSelectedKey, source);
  return defaults;
}

TEST(StripArgumentsTest, RegisteredDefaultsGiveTheUsualStrip) {
  Words expected = {"--source", "/src/bundle.dmg", "--target", "/out/R13-SS-bundle.dmg",
                    "--factory", "ss", "--product", "r13", "--stripDebug", "--stripBundleImages",
                    "--stripRPKGs", "--stripHomeDiags", "--stripSDK", "--stripDevFirmware",
                    "--keepAPFirmware", "--personalized", "on", "--unpersonalized", "off", "--ov"};
  EXPECT_EQ(stripArguments(withSource("/src/bundle.dmg"), "/out/R13-SS-bundle.dmg", false), expected);
}

TEST(StripArgumentsTest, ValidateHasNoTargetAndOverwriteStaysLast) {
  Words args = stripArguments(withSource("/src/b"), "", true);
  EXPECT_EQ(std::find(args.begin(), args.end(), "--target"), args.end());
  EXPECT_EQ(args.back(), "--ov");
  EXPECT_EQ(args[args.size() - 2], "--verbose");
}

TEST(StripArgumentsTest, EveryOptionFlippedAndSelectionInStoredOrder) {
  UserDefaults d = withSource("/src/b");
  for (const char* key : {kKeepDebugImageKey, kKeepBundleImagesKey, kKeepRPKGsKey, kKeepHomeDiagsKey,
                          kKeepSDKKey, kKeepDevFirmwareKey, kCheckUnpersonalizedKey, kEncryptKey})
    d.setObject(key, true);
  for (const char* key : {kKeepAPFirmwareKey, kGenerateSymlinksKey, kGenerateCookieKey,
                          kCheckPersonalizedKey})
    d.setObject(key, false);
  d.setStrings(kProductsKey, {"r13", "r11"});
  d.setStrings(kVariantsKey, {"swdl", "ss"});
  Words expected = {"--source", "/src/b", "--factory", "swdl", "--factory", "ss", "--product", "r13",
                    "--product", "r11", "--keepDebug", "--keepBundleImages", "--keepRPKGs",
                    "--keepHomeDiags", "--keepSDK", "--keepDevFirmware", "--stripAPFirmware",
                    "--noSymLinks", "--noCookie", "--personalized", "off", "--unpersonalized", "on",
                    "--verbose", "--encrypt", "--ov"};
  EXPECT_EQ(stripArguments(d, "", true), expected);
}

TEST(UserDefaultsTest, UserValuesOverRegisteredOnes) {
  UserDefaults d;
  EXPECT_TRUE(d.boolForKey(kKeepAPFirmwareKey));
  EXPECT_FALSE(d.boolForKey(kKeepBundleImagesKey));  // never registered
  EXPECT_EQ(d.arrayForKey(kProductsKey), Words{"r13"});
  EXPECT_EQ(d.stringForKey(kLogFilePathKey), defaultLogFilePath());
  EXPECT_EQ(d.arrayForKey(kMailLogRecipientsKey).size(), 1u);
  d.setObject(kKeepAPFirmwareKey, false);
  EXPECT_FALSE(d.boolForKey(kKeepAPFirmwareKey));
  d.setObject(kProductsKey, "not a list");
  EXPECT_TRUE(d.arrayForKey(kProductsKey).empty());
}

TEST(UserDefaultsTest, BooleansStoredAsTextOrNumbers) {
  UserDefaults d;
  for (const char* yes : {"true", "YES", "Yes", "1"}) {
    d.setObject(kEncryptKey, yes);
    EXPECT_TRUE(d.boolForKey(kEncryptKey)) << yes;
  }
  for (const char* no : {"false", "no", "0", "", "1x"}) {
    d.setObject(kEncryptKey, no);
    EXPECT_FALSE(d.boolForKey(kEncryptKey)) << no;
  }
  d.setObject(kEncryptKey, 2);
  EXPECT_TRUE(d.boolForKey(kEncryptKey));
}

TEST(UserDefaultsTest, KeysTheWindowBindsIncludeTheUnregisteredOnes) {
  Words keys = settingKeys();
  EXPECT_EQ(keys.size(), registeredDefaults().count() + 2);
  EXPECT_EQ(keys[keys.size() - 2], kKeepBundleImagesKey);
  EXPECT_EQ(keys.back(), kVerboseKey);
  EXPECT_FALSE(UserDefaults().boolForKey(kVerboseKey));
  EXPECT_TRUE(registeredDefaults().contains(kKnownProductsKey));
}

}  // namespace
}  // namespace velmar::app

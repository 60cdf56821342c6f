// The application's settings: the registered defaults table and a read view
// over the values the user has set, answering the registered default for a
// key the user never set (the search order of the platform's user defaults).
//
// The widget layer keeps the values in its settings store and hands them
// over as a dictionary; everything here is plain data.

#ifndef VELMAR_APP_USER_DEFAULTS_H_
#define VELMAR_APP_USER_DEFAULTS_H_

#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

namespace velmar::app {

// Keys of the settings.
inline constexpr char kKeepDebugImageKey[] = "keepDebugImage";
inline constexpr char kKeepRPKGsKey[] = "keepRPKGs";
inline constexpr char kKeepHomeDiagsKey[] = "keepHomeDiags";
inline constexpr char kKeepSDKKey[] = "keepSDK";
inline constexpr char kKeepDevFirmwareKey[] = "keepDevFirmware";
inline constexpr char kKeepAPFirmwareKey[] = "keepAPFirmware";
inline constexpr char kKeepDebugFirmwareKey[] = "keepDebugFirmware";
inline constexpr char kGenerateSymlinksKey[] = "generateSymlinks";
inline constexpr char kGenerateCookieKey[] = "generateCookie";
inline constexpr char kCheckPersonalizedKey[] = "checkPersonalized";
inline constexpr char kCheckUnpersonalizedKey[] = "checkUnpersonalized";
inline constexpr char kEncryptKey[] = "encrypt";
inline constexpr char kProductsKey[] = "products";
inline constexpr char kKnownProductsKey[] = "knownproducts";
inline constexpr char kVariantsKey[] = "variants";
inline constexpr char kLastSourceSelectedKey[] = "lastSourceSelected";
inline constexpr char kDestinationPathKey[] = "destinationPath";
inline constexpr char kLogFilePathKey[] = "logFilePath";
inline constexpr char kMailLogRecipientsKey[] = "mailLogRecipients";
// Never registered, so it reads false until the user sets it.
inline constexpr char kKeepBundleImagesKey[] = "keepBundleImages";
// The window's verbose switch: the tool's log and the engine's findings
// reach the log. Not registered either: quiet unless the user turns it on.
inline constexpr char kVerboseKey[] = "verbose";

// The log file's place when XDG_STATE_HOME is unset: the per-user state
// folder of the XDG base directories, which is where Linux keeps logs that
// outlive a run (settings stay in QSettings' place).
inline constexpr char kDefaultLogFilePath[] = "~/.local/state/VelmarBS/VelmarBS.log";
inline constexpr char kDefaultMailRecipient[] = "velmarbs-logs@example.com";

// The default of logFilePath for a given $XDG_STATE_HOME: "<it>/VelmarBS/
// VelmarBS.log" when it is an absolute path, else kDefaultLogFilePath (the
// base directory rules ignore a relative or empty value). Without an
// argument it reads the environment.
std::string defaultLogFilePath(const char* xdgStateHome);
std::string defaultLogFilePath();

// The registered defaults, key to default value, in table order.
// `keepDebugFirmware` and `knownproducts` are registered but read nowhere;
// they stay so that settings files written by earlier versions keep their
// meaning.
const Value& registeredDefaults();

// The keys the window changes (the bindable ones): the registered keys
// followed by `keepBundleImages` and `verbose`.
std::vector<std::string> settingKeys();

class UserDefaults {
 public:
  UserDefaults() : values_(Value::makeDict()) {}
  // `values`: a dictionary of what the user has set.
  explicit UserDefaults(Value values);

  // The user's value for `key`, else the registered default, else null.
  Value objectForKey(std::string_view key) const;
  // A boolean, or a number (non-zero is true), or a string "YES"/"true"
  // (any case) or a non-zero integer; false otherwise.
  bool boolForKey(std::string_view key) const;
  // The strings of an array value; empty for anything else.
  std::vector<std::string> arrayForKey(std::string_view key) const;
  // A string value; empty for anything else.
  std::string stringForKey(std::string_view key) const;

  void setObject(std::string key, Value value);
  void setStrings(std::string key, const std::vector<std::string>& strings);

  const Value& values() const { return values_; }

 private:
  Value values_;
};

// lastSourceSelected with "~" expanded: the bundle every query and run is about.
std::string sourcePath(const UserDefaults& defaults);

}  // namespace velmar::app

#endif  // VELMAR_APP_USER_DEFAULTS_H_

#include "app/user_defaults.h"

#include <cstdlib>

#include "app/paths.h"
#include "base/text.h"

namespace velmar::app {

std::string defaultLogFilePath(const char* xdgStateHome) {
  if (!xdgStateHome || xdgStateHome[0] != '/') return kDefaultLogFilePath;
  std::string folder = xdgStateHome;
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  if (folder == "/") folder.clear();
  return folder + "/VelmarBS/VelmarBS.log";
}

std::string defaultLogFilePath() { return defaultLogFilePath(std::getenv("XDG_STATE_HOME")); }

const Value& registeredDefaults() {
  static const Value table = [] {
    Value d = Value::makeDict();
    d.set(kKeepDebugImageKey, false);
    d.set(kKeepRPKGsKey, false);
    d.set(kKeepHomeDiagsKey, false);
    d.set(kKeepSDKKey, false);
    d.set(kKeepDevFirmwareKey, false);
    d.set(kKeepAPFirmwareKey, true);
    d.set(kKeepDebugFirmwareKey, false);
    d.set(kGenerateSymlinksKey, true);
    d.set(kGenerateCookieKey, true);
    d.set(kCheckPersonalizedKey, true);
    d.set(kCheckUnpersonalizedKey, false);
    d.set(kEncryptKey, false);
    d.set(kProductsKey, Value::makeArray({"r13"}));
    d.set(kKnownProductsKey, Value::makeArray({"r13"}));
    d.set(kVariantsKey, Value::makeArray({"ss"}));
    d.set(kLastSourceSelectedKey, "~/Desktop");
    d.set(kDestinationPathKey, "~/Desktop");
    d.set(kLogFilePathKey, defaultLogFilePath());
    d.set(kMailLogRecipientsKey, Value::makeArray({kDefaultMailRecipient}));
    return d;
  }();
  return table;
}

std::vector<std::string> settingKeys() {
  std::vector<std::string> keys = registeredDefaults().dict().keys();
  keys.push_back(kKeepBundleImagesKey);
  keys.push_back(kVerboseKey);
  return keys;
}

UserDefaults::UserDefaults(Value values) : values_(std::move(values)) {
  if (!values_.isDict()) values_ = Value::makeDict();
}

Value UserDefaults::objectForKey(std::string_view key) const {
  if (const Value* v = values_.find(key)) return *v;
  return registeredDefaults().get(key);
}

bool UserDefaults::boolForKey(std::string_view key) const {
  Value v = objectForKey(key);
  if (v.isNumber()) return v.boolValue();
  if (!v.isString()) return false;
  const std::string& s = v.str();
  std::string folded = lower(s);
  if (folded == "yes" || folded == "true") return true;
  char* end = nullptr;
  long n = std::strtol(s.c_str(), &end, 10);
  return end != s.c_str() && *end == '\0' && n != 0;
}

std::vector<std::string> UserDefaults::arrayForKey(std::string_view key) const {
  Value v = objectForKey(key);
  return v.isArray() ? v.strings() : std::vector<std::string>();
}

std::string UserDefaults::stringForKey(std::string_view key) const {
  Value v = objectForKey(key);
  return v.isString() ? v.str() : std::string();
}

void UserDefaults::setObject(std::string key, Value value) { values_.set(std::move(key), std::move(value)); }

void UserDefaults::setStrings(std::string key, const std::vector<std::string>& strings) {
  setObject(std::move(key), Value::stringArray(strings));
}

std::string sourcePath(const UserDefaults& defaults) {
  return expandTilde(defaults.stringForKey(kLastSourceSelectedKey));
}

}  // namespace velmar::app

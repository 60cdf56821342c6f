#include "app/ui/settings_store.h"

#include <QStringList>

namespace velmar::app {

namespace {

QString qstr(const std::string& s) { return QString::fromStdString(s); }

// QSettings hands text back for every stored value (and a one-element list
// as a plain string), so the registered default says what the key holds.
Value toValue(const QVariant& stored, const Value& registered) {
  if (registered.isArray()) {
    NameList names;
    for (const QString& s : stored.toStringList()) names.push_back(s.toStdString());
    return Value::stringArray(names);
  }
  if (registered.isString()) return Value(stored.toString().toStdString());
  return Value(stored.toBool());  // booleans, and the unregistered keepBundleImages
}

}  // namespace

SettingsStore::SettingsStore(QObject* parent)
    : QObject(parent), settings_(QStringLiteral("VelmarBS"), QStringLiteral("VelmarBS")) {}

UserDefaults SettingsStore::userDefaults() const {
  Value values = Value::makeDict();
  for (const std::string& key : settingKeys()) {
    QString name = qstr(key);
    if (settings_.contains(name)) values.set(key, toValue(settings_.value(name), registeredDefaults().get(key)));
  }
  return UserDefaults(std::move(values));
}

bool SettingsStore::boolForKey(const std::string& key) const { return userDefaults().boolForKey(key); }

std::string SettingsStore::stringForKey(const std::string& key) const {
  return userDefaults().stringForKey(key);
}

NameList SettingsStore::arrayForKey(const std::string& key) const {
  return userDefaults().arrayForKey(key);
}

void SettingsStore::store(const std::string& key, const QVariant& value) {
  settings_.setValue(qstr(key), value);
  emit valueChanged(qstr(key));
}

void SettingsStore::setBool(const std::string& key, bool value) { store(key, value); }

void SettingsStore::setString(const std::string& key, const std::string& value) { store(key, qstr(value)); }

void SettingsStore::setStrings(const std::string& key, const NameList& values) {
  QStringList list;
  for (const auto& v : values) list.append(qstr(v));
  store(key, list);
}

void SettingsStore::clear() {
  settings_.clear();
  settings_.sync();
}

}  // namespace velmar::app

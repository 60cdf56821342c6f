// SettingsStore: the application's settings kept in QSettings (organisation
// and application "VelmarBS"), read through the registered defaults table so
// a key the user never set answers its default. Every change made through
// the store is announced, which is how the controller learns that the source
// or a firmware setting changed and rescans.

#ifndef VELMAR_APP_UI_SETTINGS_STORE_H_
#define VELMAR_APP_UI_SETTINGS_STORE_H_

#include <QObject>
#include <QSettings>
#include <string>

#include "app/selection.h"
#include "app/user_defaults.h"

namespace velmar::app {

class SettingsStore : public QObject {
  Q_OBJECT

 public:
  explicit SettingsStore(QObject* parent = nullptr);

  // What the user has set, with the registered defaults behind it; a
  // snapshot that a worker thread may keep.
  UserDefaults userDefaults() const;

  bool boolForKey(const std::string& key) const;
  std::string stringForKey(const std::string& key) const;
  NameList arrayForKey(const std::string& key) const;

  void setBool(const std::string& key, bool value);
  void setString(const std::string& key, const std::string& value);
  void setStrings(const std::string& key, const NameList& values);

  // Forgets everything the user set (tests start from the defaults).
  void clear();

 signals:
  void valueChanged(const QString& key);

 private:
  void store(const std::string& key, const QVariant& value);

  QSettings settings_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_SETTINGS_STORE_H_

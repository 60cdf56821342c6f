// SettingCheckBox: a check box bound to one boolean setting. A click stores
// the new value; a change of the setting from anywhere shows it.

#ifndef VELMAR_APP_UI_SETTING_CHECK_BOX_H_
#define VELMAR_APP_UI_SETTING_CHECK_BOX_H_

#include <QCheckBox>
#include <string>

namespace velmar::app {

class SettingsStore;

class SettingCheckBox : public QCheckBox {
  Q_OBJECT

 public:
  SettingCheckBox(const QString& title, std::string key, SettingsStore& settings, QWidget* parent = nullptr);

  const std::string& key() const { return key_; }

 private:
  std::string key_;
  SettingsStore& settings_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_SETTING_CHECK_BOX_H_

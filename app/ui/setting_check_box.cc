#include "app/ui/setting_check_box.h"

#include "app/ui/settings_store.h"

namespace velmar::app {

SettingCheckBox::SettingCheckBox(const QString& title, std::string key, SettingsStore& settings,
                                 QWidget* parent)
    : QCheckBox(title, parent), key_(std::move(key)), settings_(settings) {
  setChecked(settings_.boolForKey(key_));
  connect(this, &QCheckBox::clicked, this, [this](bool on) { settings_.setBool(key_, on); });
  connect(&settings_, &SettingsStore::valueChanged, this, [this](const QString& changed) {
    if (changed.toStdString() == key_) setChecked(settings_.boolForKey(key_));
  });
}

}  // namespace velmar::app

// MainWindow: the main window's widgets. The source field and its Choose
// button, the products and stations boxes, the option check boxes bound to
// the settings, Strip and Validate, and the menu. It decides nothing: the
// controller (AppController) listens to its signals and sets its state.
// Closing it quits the application.

#ifndef VELMAR_APP_UI_MAIN_WINDOW_H_
#define VELMAR_APP_UI_MAIN_WINDOW_H_

#include <QMainWindow>
#include <vector>

class QAction;
class QLineEdit;
class QMenu;
class QPushButton;

namespace velmar::app {

class CheckBoxPanel;
class SettingCheckBox;
class SettingsStore;

class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  explicit MainWindow(SettingsStore& settings, QWidget* parent = nullptr);

  CheckBoxPanel* productsBox() const { return productsBox_; }
  CheckBoxPanel* stationsBox() const { return stationsBox_; }
  QPushButton* stripButton() const { return stripButton_; }
  QPushButton* validateButton() const { return validateButton_; }
  QLineEdit* sourceField() const { return sourceField_; }
  const std::vector<SettingCheckBox*>& optionBoxes() const { return optionBoxes_; }
  QAction* toggleLogWindowAction() const { return toggleLogWindow_; }
  QAction* clearLogAction() const { return clearLog_; }

 signals:
  void chooseSourceClicked();
  // The user typed a path into the source field.
  void sourceEdited(const QString& path);
  void stripClicked();
  void validateClicked();
  void logMenuAboutToShow();
  void closing();

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  QWidget* makeSourceRow();
  QWidget* makeOptionsBox(SettingsStore& settings);
  void makeMenu();
  void showSource();

  SettingsStore& settings_;
  QLineEdit* sourceField_ = nullptr;
  CheckBoxPanel* productsBox_ = nullptr;
  CheckBoxPanel* stationsBox_ = nullptr;
  std::vector<SettingCheckBox*> optionBoxes_;
  QPushButton* stripButton_ = nullptr;
  QPushButton* validateButton_ = nullptr;
  QAction* toggleLogWindow_ = nullptr;
  QAction* clearLog_ = nullptr;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_MAIN_WINDOW_H_

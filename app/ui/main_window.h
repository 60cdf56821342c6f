// MainWindow: the main window's widgets. The source field with its Choose
// button and the line that says why a scan found nothing, the products box
// (scrolling once it would make the window taller than the screen), the
// stations box, the option check boxes bound to the settings, Validate and
// Strip, and the menus. It decides nothing: the controller (AppController)
// listens to its signals and sets its state. Closing it quits the
// application, after asking the controller when a scan or run is going on.

#ifndef VELMAR_APP_UI_MAIN_WINDOW_H_
#define VELMAR_APP_UI_MAIN_WINDOW_H_

#include <QMainWindow>
#include <vector>

class QAction;
class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;
class QScrollArea;

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
  QScrollArea* productsScrollArea() const { return productsScroll_; }
  QPushButton* stripButton() const { return stripButton_; }
  QPushButton* validateButton() const { return validateButton_; }
  QPushButton* chooseButton() const { return chooseButton_; }
  QLineEdit* sourceField() const { return sourceField_; }
  QLabel* sourceLabel() const { return sourceLabel_; }
  QLabel* scanProblemLine() const { return scanProblem_; }
  const std::vector<SettingCheckBox*>& optionBoxes() const { return optionBoxes_; }
  SettingCheckBox* verboseBox() const { return verboseBox_; }
  QAction* chooseAction() const { return choose_; }
  QAction* rescanAction() const { return rescan_; }
  QAction* validateAction() const { return validate_; }
  QAction* stripAction() const { return strip_; }
  QAction* quitAction() const { return quit_; }
  QAction* toggleLogWindowAction() const { return toggleLogWindow_; }
  QAction* clearLogAction() const { return clearLog_; }
  QAction* aboutAction() const { return about_; }
  QAction* howToAction() const { return howTo_; }

  // While a scan or run goes on nothing else can be started; the log, Help
  // and quitting stay at hand.
  void setBusy(bool busy);
  bool isBusy() const { return busy_; }
  // Strip and Validate, buttons and menu items alike.
  void setRunEnabled(bool enabled);
  // The line under the source field; hidden when empty.
  void showScanProblem(const QString& text);

  // Every control from top to bottom, in the order Tab visits them.
  std::vector<QWidget*> tabOrder() const;

 signals:
  void chooseSourceClicked();
  // Enter in the source field: scan what it names.
  void sourceEntered(const QString& path);
  // The user typed a path into the source field and left it.
  void sourceEdited(const QString& path);
  // A folder or ".dmg" was dropped on the window.
  void sourceDropped(const QString& path);
  void rescanClicked();
  void stripClicked();
  void validateClicked();
  void logMenuAboutToShow();
  void aboutClicked();
  void howToClicked();
  // Close box or Quit while busy: the window stays; the controller asks.
  void closeRequested();
  void closing();

 protected:
  void closeEvent(QCloseEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  QWidget* makeSourceRow();
  QWidget* makeOptionsBox(SettingsStore& settings);
  void makeMenu();
  void showSource();
  // The source field's text as a path (pathFromPastedText).
  QString typedSource() const;
  void updateActions();
  void updateTabOrder();
  void fitToScreen();
  void saveGeometryNow();

  SettingsStore& settings_;
  QLabel* sourceLabel_ = nullptr;
  QLineEdit* sourceField_ = nullptr;
  QPushButton* chooseButton_ = nullptr;
  QLabel* scanProblem_ = nullptr;
  CheckBoxPanel* productsBox_ = nullptr;
  QScrollArea* productsScroll_ = nullptr;
  CheckBoxPanel* stationsBox_ = nullptr;
  std::vector<SettingCheckBox*> optionBoxes_;
  SettingCheckBox* verboseBox_ = nullptr;
  QPushButton* stripButton_ = nullptr;
  QPushButton* validateButton_ = nullptr;
  QAction* choose_ = nullptr;
  QAction* rescan_ = nullptr;
  QAction* validate_ = nullptr;
  QAction* strip_ = nullptr;
  QAction* quit_ = nullptr;
  QAction* toggleLogWindow_ = nullptr;
  QAction* clearLog_ = nullptr;
  QAction* about_ = nullptr;
  QAction* howTo_ = nullptr;
  bool busy_ = false;
  bool runEnabled_ = false;
  bool placed_ = false;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_MAIN_WINDOW_H_

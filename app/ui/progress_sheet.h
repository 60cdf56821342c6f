// ProgressSheet: the window-modal sheet over the main window while a bundle
// is scanned or a run goes on: a message and an indeterminate progress bar,
// and once a run has ended OK, Mail Log and Show Log buttons.

#ifndef VELMAR_APP_UI_PROGRESS_SHEET_H_
#define VELMAR_APP_UI_PROGRESS_SHEET_H_

#include <QDialog>
#include <string>

class QLabel;
class QProgressBar;
class QPushButton;

namespace velmar::app {

class ProgressSheet : public QDialog {
  Q_OBJECT

 public:
  explicit ProgressSheet(QWidget* parent);

  // Shows the sheet with `text`, the bar running and no buttons.
  void beginBusy(const std::string& text);
  // The run has ended: `text`, the bar stopped, the three buttons shown.
  void showEnded(const std::string& text);
  // Takes the sheet down.
  void end();

  bool isBusy() const { return busy_; }
  QString text() const;
  QPushButton* okButton() const { return ok_; }
  QPushButton* mailLogButton() const { return mailLog_; }
  QPushButton* showLogButton() const { return showLog_; }

 signals:
  void okClicked();
  void mailLogClicked();
  void showLogClicked();

 public slots:
  // Escape and the close box: ignored while busy, OK afterwards.
  void reject() override;

 private:
  void showButtons(bool shown);

  QLabel* text_;
  QProgressBar* progress_;
  QPushButton* ok_;
  QPushButton* mailLog_;
  QPushButton* showLog_;
  bool busy_ = false;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_PROGRESS_SHEET_H_

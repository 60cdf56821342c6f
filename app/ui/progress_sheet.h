// ProgressSheet: the sheet over the main window while a bundle is scanned or
// a run goes on: a message, a progress bar with a line saying how far the
// scan is, and Cancel; once a run has ended OK, Mail Log and Show Log.
//
// It does not block the main window the way a modal dialog would: the
// controller disables what could start a second scan or run, and the
// window's close box and Quit stay usable, so that quitting during a scan
// can be asked about.

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

  // Shows the sheet with `text`, the bar running, Cancel and no other button.
  void beginBusy(const std::string& text);
  // How far the work is ("product 37 of 152"), under the text; the bar
  // shows `number` of `count`.
  void showProgress(const std::string& detail, int number, int count);
  // The run has ended: `text`, the bar stopped, the three buttons shown.
  void showEnded(const std::string& text);
  // A scan was cancelled: `text` and OK alone.
  void showStopped(const std::string& text);
  // Takes the sheet down.
  void end();

  bool isBusy() const { return busy_; }
  QString text() const;
  QString detail() const;
  QPushButton* okButton() const { return ok_; }
  QPushButton* mailLogButton() const { return mailLog_; }
  QPushButton* showLogButton() const { return showLog_; }
  QPushButton* cancelButton() const { return cancel_; }

 signals:
  void okClicked();
  void mailLogClicked();
  void showLogClicked();
  void cancelClicked();

 public slots:
  // Escape and the close box: ignored while busy, OK afterwards.
  void reject() override;

 private:
  void showButtons(bool shown);
  void stopBar();

  QLabel* text_;
  QLabel* detail_;
  QProgressBar* progress_;
  QPushButton* ok_;
  QPushButton* mailLog_;
  QPushButton* showLog_;
  QPushButton* cancel_;
  bool busy_ = false;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_PROGRESS_SHEET_H_

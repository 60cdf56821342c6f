// LogWindow: the top-level window that shows the log, with Clear Log, Copy
// and Print buttons. Closing it only hides it; it remembers where it was.

#ifndef VELMAR_APP_UI_LOG_WINDOW_H_
#define VELMAR_APP_UI_LOG_WINDOW_H_

#include <QWidget>
#include <string>

namespace velmar::app {

class LogTextView;

class LogWindow : public QWidget {
  Q_OBJECT

 public:
  explicit LogWindow(QWidget* parent = nullptr);

  LogTextView* textView() const { return textView_; }

  // Titled with the log file's last path component ("VelmarSNIFF Log"
  // without a file), which is also the window's represented file.
  void showLogFilename(const std::string& logFilename);

  // The selection to the clipboard as plain text.
  void copy();
  // The print dialog, then the whole log on the printer chosen.
  void printDocument();

 signals:
  void clearLogClicked();

 protected:
  void hideEvent(QHideEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  LogTextView* textView_;
  bool placed_ = false;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_LOG_WINDOW_H_
